#include "base/qvn_slab.h"

#include <cassert>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <sys/mman.h>

#include "base/qvn_sanitizer.h"

#if QVN_ADDRESS_SANITIZER
#include <atomic>
#include <cstdio>
#include <new>
#include <sanitizer/asan_interface.h>
#include <sanitizer/lsan_interface.h>
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
void* map_aligned(std::size_t size) {
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

// --- what the address sanitizer learns: which bytes belong to pieces
// ---------------------------------------------------------------------------------------------

#if QVN_ADDRESS_SANITIZER

/// In front of each piece, a line, so that pieces of whole lines still begin one. Nobody but the
/// slab may touch it.
struct piece_note {
  std::size_t size;  ///< as it was asked for; kReleased when it has no owner any more
  char unused[kLine - sizeof(std::size_t)];
};
constexpr std::size_t kReleased = SIZE_MAX;

constexpr std::size_t kFront = sizeof(piece_note);

std::atomic<int> g_blocks = 0;  ///< of all slabs

/// The leak checker does not know pieces.
void expect_no_block() {
  if (g_blocks != 0) {
    (void)std::fputs("qvn_slab: pieces have not been released\n", stderr);
    std::abort();
  }
}

/// What a block points to is not lost.
void guard_block(void* contents, std::size_t size) {
  [[maybe_unused]] static const int at_exit = std::atexit(expect_no_block);
  ++g_blocks;
  __asan_poison_memory_region(contents, size);
  __lsan_register_root_region(contents, size);
}

void unguard_block(void* contents, std::size_t size) {
  --g_blocks;
  __lsan_unregister_root_region(contents, size);
  __asan_unpoison_memory_region(contents, size);
}

/// Makes `size` bytes after the note at `front` a piece; returns it.
void* hand_out(char* front, std::size_t size) {
  __asan_unpoison_memory_region(front, kFront + size);
  new (front) piece_note{size, {}};
  __asan_poison_memory_region(front, kFront);
  return front + kFront;
}

void take_back(void* piece) {
  auto* const note = static_cast<piece_note*>(piece) - 1;
  __asan_unpoison_memory_region(note, kFront);
  assert(note->size != kReleased);       // twice
  std::memset(piece, 0xdd, note->size);  // what it pointed to may be lost now
  __asan_poison_memory_region(piece, note->size);
  note->size = kReleased;
  __asan_poison_memory_region(note, kFront);
}

#else

constexpr std::size_t kFront = 0;

void guard_block(void* /*contents*/, std::size_t /*size*/) {}
void unguard_block(void* /*contents*/, std::size_t /*size*/) {}
void* hand_out(char* front, std::size_t /*size*/) {
  return front;
}
void take_back(void* /*piece*/) {}

#endif

// Pieces are counted without a lock. Whoever pays for a sanitizer or does without optimisation has
// it looked after.
#if QVN_ADDRESS_SANITIZER || QVN_THREAD_SANITIZER || !defined(__OPTIMIZE__)
constexpr bool kThreadIsLookedAfter = true;
#else
constexpr bool kThreadIsLookedAfter = false;
#endif

}  // namespace

/// Stands at the front of every block.
/// A whole line, so that pieces of whole lines begin one.
struct alignas(kLine) qvn_slab::block {
  std::size_t mapped;  ///< bytes of the whole block
  std::size_t used;    ///< bytes handed out, this header included
  std::size_t live;    ///< pieces not yet released
  qvn_slab* owner;     ///< the slab whose current block this may be
  pthread_t thread;    ///< the one that made it, whose pieces are all that are in it

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
      fresh->thread = pthread_self();
      ++owner->blocks_;
      guard_block(fresh + 1, size - sizeof(block));
    }
    return fresh;
  }

  /// The block that a piece lies in.
  static block* of(void* piece) {
    const auto address = reinterpret_cast<std::uintptr_t>(piece);
    return reinterpret_cast<block*>(address & ~(kBlockSize - 1));
  }

  [[nodiscard]] bool is_of_this_thread() const {
    return !kThreadIsLookedAfter || pthread_equal(thread, pthread_self()) != 0;
  }

  void* cut(std::size_t size, std::size_t taken) {
    assert(is_of_this_thread());
    char* const front = reinterpret_cast<char*>(this) + used;
    used += taken;
    ++live;
    return hand_out(front, size);
  }

  /// Its memory goes back with it.
  void destroy() {
    if (owner->current_ == this) {
      owner->current_ = nullptr;
    }
    --owner->blocks_;
    unguard_block(this + 1, mapped - sizeof(block));
    (void)munmap(this, mapped);
  }
};

void* qvn_slab::alloc(std::size_t size) noexcept {
  constexpr std::size_t kAlignment = 8;
  if (size > SIZE_MAX / 2) {
    return nullptr;
  }
  const std::size_t taken = kFront + ((size + kAlignment - 1) & ~(kAlignment - 1));
  if (taken > kBlockSize - sizeof(block)) {
    // Too large to share a block: a mapping of its own, found from its start like any other.
    block* const single = block::create(this, taken + sizeof(block));
    return single ? single->cut(size, taken) : nullptr;
  }
  if (!current_ || current_->mapped - current_->used < taken) {
    block* const fresh = block::create(this, kBlockSize);
    if (!fresh) {
      return nullptr;
    }
    current_ = fresh;
  }
  return current_->cut(size, taken);
}

void qvn_slab::release(void* piece) noexcept {
  if (!piece) {
    return;
  }
  block* const home = block::of(piece);
  assert(home->is_of_this_thread());
  take_back(piece);
  if (--home->live == 0) {
    home->destroy();
  }
}

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
