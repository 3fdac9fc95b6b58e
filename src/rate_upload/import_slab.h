/// The slab for what an import keeps until it ends. One for all of it: the slots, which are visited
/// in no order, lie in huge pages as soon as the import is large.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <vector>

#include "base/qvn_slab.h"

inline thread_local constinit qvn_slab import_slab;

struct import_slab_release {
  void operator()(void* piece) const noexcept { qvn_slab::release(piece); }
};

/// Owned items of the slab, which need no destructor.
template <class Item>
using import_items = std::unique_ptr<Item[], import_slab_release>;

/// So many zeroed items; null when memory runs out.
template <class Item>
[[nodiscard]] import_items<Item> import_items_make(std::size_t count) {
  return import_items<Item>(static_cast<Item*>(import_slab.alloc(count * sizeof(Item))));
}

/// Adds a piece of `count` zeroed items; false when memory runs out.
template <class Item>
[[nodiscard]] bool import_piece_add(std::vector<import_items<Item>>& pieces, std::size_t count) {
  try {
    pieces.push_back(import_items_make<Item>(count));
  } catch (const std::bad_alloc&) {
    return false;
  }
  if (pieces.back()) {
    return true;
  }
  pieces.pop_back();
  return false;
}
