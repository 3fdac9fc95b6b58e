#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <span>
#include <thread>
#include <vector>

#include "base/qvn_sanitizer.h"
#include "base/qvn_slab.h"

namespace {

/// Pieces of all sizes, also larger than a block, are zeroed, aligned and apart from each other,
/// whichever of them go.
TEST(slab, pieces_are_zeroed_aligned_and_apart) {
  constexpr std::size_t kSizes[] = {1, 8, 72, 4095, 1 << 19, (1 << 20) - 32, 1 << 20, 3 << 20};
  qvn_slab slab;
  std::vector<std::span<unsigned char>> held;
  const auto holds_only = [](std::span<unsigned char> piece, unsigned char mark) {
    return std::ranges::all_of(piece, [mark](unsigned char byte) { return byte == mark; });
  };
  for (std::size_t step = 0; step < 1000; ++step) {
    const std::size_t size = kSizes[step % (step % 20 == 7 ? std::size(kSizes) : 4)];
    const std::span piece(static_cast<unsigned char*>(slab.alloc(size)), size);
    ASSERT_NE(piece.data(), nullptr);
    ASSERT_EQ(reinterpret_cast<std::uintptr_t>(piece.data()) % 8, 0U);
    ASSERT_TRUE(holds_only(piece, 0));
    std::memset(piece.data(), 1 + static_cast<int>(step % 255), size);
    held.push_back(piece);
    if (step % 3 == 0) {
      std::swap(held[step * 7 % held.size()], held.back());
      ASSERT_TRUE(holds_only(held.back(), held.back().front()));
      qvn_slab::release(held.back().data());
      held.pop_back();
    }
  }
  for (const auto piece : held) {
    ASSERT_TRUE(holds_only(piece, piece.front()));
    qvn_slab::release(piece.data());
  }
}

/// The process's mapped address space, in pages.
size_t mapped_pages() {
  std::ifstream statm("/proc/self/statm");
  size_t pages = 0;
  statm >> pages;
  return pages;
}

TEST(slab, large_pieces_leave_no_address_space_behind) {
  qvn_slab slab;
  EXPECT_EQ(slab.alloc(SIZE_MAX), nullptr);
  EXPECT_EQ(slab.alloc(SIZE_MAX / 4), nullptr);
  const size_t before = mapped_pages();
  for (int i = 0; i < 100; ++i) {
    qvn_slab::release(slab.alloc((size_t{3} << 20) + 100));
  }
  EXPECT_LT(mapped_pages(), before + 1000);
}

#if QVN_ADDRESS_SANITIZER
TEST(slab, what_is_no_piece_must_not_be_touched) {
  qvn_slab slab;
  auto* const released = static_cast<volatile char*>(slab.alloc(20));
  auto* const held = static_cast<volatile char*>(slab.alloc(20));
  held[19] = 1;
  EXPECT_DEATH(held[20] = 1, "use-after-poison");
  EXPECT_DEATH(held[-1] = 1, "use-after-poison");
  qvn_slab::release(const_cast<char*>(released));
  EXPECT_DEATH(released[0] = 1, "use-after-poison");
  EXPECT_DEATH(qvn_slab::release(const_cast<char*>(released)), "size != kReleased");
  EXPECT_DEATH(std::thread([=] { qvn_slab::release(const_cast<char*>(held)); }).join(),
               "is_of_this_thread");
  qvn_slab::release(const_cast<char*>(held));
}
#endif

}  // namespace
