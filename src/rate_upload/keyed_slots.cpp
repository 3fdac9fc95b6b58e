#include "rate_upload/keyed_slots.h"

#include <utility>

#include "base/qvn_keyed_hash.h"

namespace {

constexpr std::size_t kFirstCapacity = 1024;

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
  slots_.swap(slots);
  const std::size_t old_capacity = std::exchange(capacity_, capacity);
  for (std::size_t i = 0; i < old_capacity; ++i) {
    if (slots[i] != 0) {
      put(slots[i]);
    }
  }
  return true;
}

void keyed_slots::add(uint32_t hash, uint32_t place) {
  put(uint64_t{hash} << kHashShift | place);
  ++count_;
}
