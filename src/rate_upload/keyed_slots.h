/// An open table of places by the hash of their keys, for keys that come from outside: their author
/// cannot aim at its slots, as the hash is keyed with what the process has drawn for itself. Where
/// the keys lie is the owner's matter; their order does not show. Belongs to one thread at a time.
///
///     slots   [ 0 | hash, place | 0 | 0 | hash, place | ... ]   a power of two
///
/// A slot is 8 bytes: 32 bits of hash above a place of 32 bits. At most three of four are in use.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "rate_upload/import_slab.h"

class keyed_slots {
 public:
  [[nodiscard]] static uint32_t hash(std::string_view key);

  /// Has the slot of a key brought near that is looked for soon.
  void fetch(uint32_t hash) const {
    if (capacity_ > 0) {
      __builtin_prefetch(&slots_[hash & (capacity_ - 1)], 1);
    }
  }

  /// The place of the key, or 0. `same` says of a place whether it holds the key.
  template <class Same>
  [[nodiscard]] uint32_t find(uint32_t hash, Same same) const {
    return capacity_ == 0 ? 0 : static_cast<uint32_t>(slots_[index_of(hash, same)]);
  }

  /// Room for one more; false when memory runs out.
  [[nodiscard]] bool make_room() { return count_ < capacity_ / 4 * 3 || grow(); }

  /// Adds a place, not 0, whose key is not there; make_room() must have been called for it.
  void add(uint32_t hash, uint32_t place);

 private:
  template <class Same>
  [[nodiscard]] std::size_t index_of(uint32_t hash, Same same) const {
    std::size_t index = hash & (capacity_ - 1);
    while (slots_[index] != 0 &&
           (slots_[index] >> kHashShift != hash || !same(static_cast<uint32_t>(slots_[index])))) {
      index = (index + 1) & (capacity_ - 1);
    }
    return index;
  }
  /// Puts the slot of a key that is not there into the first free one from its own on.
  void put(uint64_t slot) {
    const auto none = [](uint32_t /*place*/) { return false; };
    slots_[index_of(static_cast<uint32_t>(slot >> kHashShift), none)] = slot;
  }
  [[nodiscard]] bool grow();

  static constexpr unsigned kHashShift = 32;

  import_items<uint64_t> slots_;
  std::size_t capacity_ = 0;
  std::size_t count_ = 0;
};
