#include "rate/rp_hash_index.h"

#include <new>

#include "base/qvn_slab.h"

namespace {

static_assert(sizeof(rp_hash_index) <= rp_hash_index::kLine);

// Apart from the nodes, so that a search touches little memory. All pieces of the slab are a line
// long, so each begins one.
thread_local constinit qvn_slab index_slab;

/// Lines from one piece to another; 0 when they are too far apart.
int32_t distance(const void* from, const void* to) {
  constexpr int64_t kFarthest = (int64_t{1} << 30) - 1;  // a link has one bit less
  const int64_t lines = (reinterpret_cast<intptr_t>(to) - reinterpret_cast<intptr_t>(from)) /
                        int64_t{rp_hash_index::kLine};
  return lines >= -kFarthest && lines <= kFarthest ? static_cast<int32_t>(lines) : 0;
}

}  // namespace

void rp_hash_index::add(const rp_hash_node* node) {
  int32_t* const link = link_of(node->ch);
  if (!link) {
    return;
  }
  const rp_hash_index* const index = of(node);
  const int32_t to_index = index ? distance(this, index) : 0;
  *link = to_index != 0 ? to_index * 2 + 1 : distance(this, node) * 2;
  if (*link == 0) {
    partial = 1;
  }
}

void rp_hash_index::make(rp_hash_node* owner) {
  void* const memory = index_slab.alloc(kLine);
  const int32_t place = memory ? distance(owner, memory) : 0;
  if (place == 0) {
    qvn_slab::release(memory);
    return;
  }
  auto* const index = new (memory) rp_hash_index{};
  index->owner = -place;
  index->terminal = owner->terminal;
  for (const rp_hash_node* node = owner->children; node; node = node->next) {
    index->add(node);
  }
  owner->index = place;
  if (rp_hash_index* const level = owner->parent ? of(owner->parent) : nullptr) {
    level->add(owner);
  }
}
