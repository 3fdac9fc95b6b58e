#include "base/qvn_slab.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>

#if defined(__SANITIZE_ADDRESS__)
#define QVN_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QVN_ADDRESS_SANITIZER 1
#endif
#endif

namespace {

// Also the alignment of every block, and the size of a huge page.
constexpr std::size_t kBlockSize = std::size_t{2} << 20;

constexpr std::size_t kLine = 64;  // a cache line

// A slab that has as many blocks asks for huge pages: records of a large tree are visited in no
// order, and each visit would pay for address translation too. A small job stays with small pages,
// as the first byte of a huge one takes all of it.
constexpr std::size_t kBlocksOfSmallPages = 2;

/// Maps `size` bytes, a multiple of kBlockSize, at such a multiple, zeroed; null when memory runs
/// out.
[[maybe_unused]] void* map_aligned(std::size_t size) {
  const std::size_t reserved = size + kBlockSize;
  if (reserved < size) {
    return nullptr;
  }
  void* const region =
      mmap(nullptr, reserved, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (region == MAP_FAILED) {
    return nullptr;
  }
  char* const start = static_cast<char*>(region);
  const std::size_t misplaced = reinterpret_cast<std::uintptr_t>(start) % kBlockSize;
  const std::size_t front = misplaced == 0 ? 0 : kBlockSize - misplaced;
  if (front > 0) {
    (void)munmap(start, front);  // a hole that stays mapped costs address space only
  }
  (void)munmap(start + front + size, reserved - front - size);
  return start + front;
}

}  // namespace

/// Stands at the front of every block.
/// A whole line, so that pieces of whole lines begin one.
struct alignas(kLine) qvn_slab::block {
  std::size_t mapped;  ///< bytes of the whole block
  std::size_t used;    ///< bytes handed out, this header included
  std::size_t live;    ///< pieces not yet released
  qvn_slab* owner;     ///< the slab whose current block this may be

  /// Has room for as many bytes, itself included. Of whole blocks, as the system takes nothing back
  /// but whole pages.
  static block* create(qvn_slab* owner, std::size_t bytes) {
    const std::size_t size = (bytes + kBlockSize - 1) & ~(kBlockSize - 1);
    auto* const fresh = static_cast<block*>(map_aligned(size));
    if (fresh) {
      // A wish: without it the block works all the same.
      (void)madvise(fresh, size,
                    owner->blocks_ < kBlocksOfSmallPages ? MADV_NOHUGEPAGE : MADV_HUGEPAGE);
      fresh->mapped = size;
      fresh->used = sizeof(block);
      fresh->owner = owner;
      ++owner->blocks_;
    }
    return fresh;
  }
};

#ifdef QVN_ADDRESS_SANITIZER

// One heap block a piece, so that the sanitizer sees every use of a released record.
void* qvn_slab::alloc(std::size_t size) noexcept {
  if (size % kLine != 0) {
    return std::calloc(1, size);
  }
  void* const piece = std::aligned_alloc(kLine, size);
  return piece ? std::memset(piece, 0, size) : nullptr;
}
void qvn_slab::release(void* piece) noexcept {
  std::free(piece);
}

#else

void* qvn_slab::alloc(std::size_t size) noexcept {
  constexpr std::size_t kAlignment = 8;
  if (size > SIZE_MAX / 2) {
    return nullptr;
  }
  const std::size_t rounded = (size + kAlignment - 1) & ~(kAlignment - 1);
  if (rounded > kBlockSize - sizeof(block)) {
    // Too large to share a block: a mapping of its own, found from its start like any other.
    block* const single = block::create(this, rounded + sizeof(block));
    if (!single) {
      return nullptr;
    }
    single->live = 1;
    return single + 1;
  }
  if (!current_ || current_->mapped - current_->used < rounded) {
    block* const fresh = block::create(this, kBlockSize);
    if (!fresh) {
      return nullptr;
    }
    current_ = fresh;
  }
  void* const piece = reinterpret_cast<char*>(current_) + current_->used;
  current_->used += rounded;
  ++current_->live;
  return piece;
}

void qvn_slab::release(void* piece) noexcept {
  if (!piece) {
    return;
  }
  const auto address = reinterpret_cast<std::uintptr_t>(piece);
  auto* const home = reinterpret_cast<block*>(address & ~(kBlockSize - 1));
  if (--home->live > 0) {
    return;
  }
  if (home->owner->current_ == home) {
    home->owner->current_ = nullptr;
  }
  --home->owner->blocks_;
  (void)munmap(home, home->mapped);
}

#endif

const char* qvn_store_text(char*& end, std::string_view text) {
  if (text.empty()) {
    return nullptr;
  }
  char* const copy = end;
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  end += text.size() + 1;
  return copy;
}
