#include "rate_upload/seen_codes.h"

#include <cstring>

#include "base/qvn_keyed_hash.h"
#include "base/qvn_slab.h"

namespace {

constexpr std::size_t kFirstCapacity = 1024;
constexpr unsigned kHashShift = 32;
constexpr unsigned kOffsetBits = 16;
constexpr uint32_t kMostPieces = (1U << 16) - 1;  // 4 GiB of codes
static_assert(text_pool::kPieceSize == 1U << kOffsetBits);

thread_local constinit qvn_slab slot_slab;

uint32_t hash_of(uint64_t slot) {
  return static_cast<uint32_t>(slot >> kHashShift);
}

/// Never 0, which is a free slot: pieces count from 1.
uint64_t make_slot(uint32_t hash, text_pool::place where) {
  return uint64_t{hash} << kHashShift | uint64_t{where.piece + 1} << kOffsetBits | where.offset;
}

uint32_t hash_of(std::string_view code) {
  return static_cast<uint32_t>(qvn_keyed_hash(qvn_process_hash_key(), code));
}

bool same(const char* kept, std::string_view code) {
  return std::strncmp(kept, code.data(), code.size()) == 0 && kept[code.size()] == '\0';
}

}  // namespace

seen_codes::~seen_codes() {
  qvn_slab::release(slots_);
}

const char* seen_codes::text_of(uint64_t slot) const {
  const auto place = static_cast<uint32_t>(slot);
  return texts_.at({(place >> kOffsetBits) - 1, place & (text_pool::kPieceSize - 1)});
}

/// The slot of the code, or the free one in which it belongs.
std::size_t seen_codes::find(std::string_view code, uint32_t hash) const {
  std::size_t index = hash & (capacity_ - 1);
  while (slots_[index] != 0 &&
         (hash_of(slots_[index]) != hash || !same(text_of(slots_[index]), code))) {
    index = (index + 1) & (capacity_ - 1);
  }
  return index;
}

bool seen_codes::grow() {
  const std::size_t capacity = capacity_ == 0 ? kFirstCapacity : 2 * capacity_;
  auto* const slots = static_cast<uint64_t*>(slot_slab.alloc(capacity * sizeof(uint64_t)));
  if (!slots) {
    return false;
  }
  for (std::size_t i = 0; i < capacity_; ++i) {
    if (slots_[i] == 0) {
      continue;
    }
    std::size_t index = hash_of(slots_[i]) & (capacity - 1);
    while (slots[index] != 0) {
      index = (index + 1) & (capacity - 1);
    }
    slots[index] = slots_[i];
  }
  qvn_slab::release(slots_);
  slots_ = slots;
  capacity_ = capacity;
  return true;
}

void seen_codes::expect(std::string_view code) {
  expected_ = code;
  expected_hash_ = hash_of(code);
  if (capacity_ > 0) {
    __builtin_prefetch(&slots_[expected_hash_ & (capacity_ - 1)], 1);
  }
}

seen_codes::verdict seen_codes::add(std::string_view& code) {
  if (count_ >= capacity_ / 4 * 3 && !grow()) {
    return verdict::no_memory;
  }
  const bool expected = code.data() == expected_.data() && code.size() == expected_.size();
  const uint32_t hash = expected ? expected_hash_ : hash_of(code);
  expected_ = {};
  const std::size_t index = find(code, hash);
  if (slots_[index] != 0) {
    return verdict::repeated;
  }
  text_pool::place where{};
  if (!texts_.add(code, where) || where.piece >= kMostPieces) {
    return verdict::no_memory;
  }
  slots_[index] = make_slot(hash, where);
  ++count_;
  code = {texts_.at(where), code.size()};
  return verdict::fresh;
}
