#include "rate_upload/keyed_slots.h"

#include "base/qvn_keyed_hash.h"

namespace {

constexpr std::size_t kFirstCapacity = 1024;

/// Puts the slot into the first free one from its own on.
void put(uint64_t* slots, std::size_t capacity, uint64_t slot, unsigned hash_shift) {
  std::size_t index = slot >> hash_shift & (capacity - 1);
  while (slots[index] != 0) {
    index = (index + 1) & (capacity - 1);
  }
  slots[index] = slot;
}

}  // namespace

uint32_t keyed_slots::hash(std::string_view key) {
  return static_cast<uint32_t>(qvn_keyed_hash(qvn_process_hash_key(), key));
}

bool keyed_slots::grow() {
  const std::size_t capacity = capacity_ == 0 ? kFirstCapacity : 2 * capacity_;
  import_items<uint64_t> slots = import_items_make<uint64_t>(capacity);
  if (!slots) {
    return false;
  }
  for (std::size_t i = 0; i < capacity_; ++i) {
    if (slots_[i] != 0) {
      put(slots.get(), capacity, slots_[i], kHashShift);
    }
  }
  slots_ = std::move(slots);
  capacity_ = capacity;
  return true;
}

void keyed_slots::add(uint32_t hash, uint32_t place) {
  put(slots_.get(), capacity_, uint64_t{hash} << kHashShift | place, kHashShift);
  ++count_;
}
