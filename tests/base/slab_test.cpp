#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "base/qvn_slab.h"

namespace {

struct piece {
  unsigned char* memory;
  std::size_t size;
  unsigned char mark;
};

bool holds_only(const piece& held, unsigned char value) {
  return std::all_of(held.memory, held.memory + held.size,
                     [value](unsigned char byte) { return byte == value; });
}

/// Pieces of all sizes, also larger than a block, are zeroed, aligned and nobody else's, in
/// whatever order they come and go.
TEST(slab, pieces_are_zeroed_aligned_and_apart) {
  constexpr std::size_t kSizes[] = {1, 8, 72, 4095, 1 << 19, (1 << 20) - 32, 1 << 20, 3 << 20};
  const auto seed = std::random_device{}();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  qvn_slab slab;
  std::vector<piece> held;
  const auto release_one = [&] {
    std::swap(held[random() % held.size()], held.back());
    ASSERT_TRUE(holds_only(held.back(), held.back().mark));
    qvn_slab::release(held.back().memory);
    held.pop_back();
  };
  for (int step = 0; step < 2000; ++step) {
    const std::size_t size = kSizes[random() % (step % 20 == 0 ? std::size(kSizes) : 4)];
    piece fresh{static_cast<unsigned char*>(slab.alloc(size)), size,
                static_cast<unsigned char>(1 + step % 255)};
    ASSERT_NE(fresh.memory, nullptr);
    ASSERT_EQ(reinterpret_cast<std::uintptr_t>(fresh.memory) % 8, 0U);
    ASSERT_TRUE(holds_only(fresh, 0));
    std::memset(fresh.memory, fresh.mark, fresh.size);
    held.push_back(fresh);
    if (random() % 3 == 0) {
      release_one();
    }
  }
  while (!held.empty()) {
    release_one();
  }
  qvn_slab::release(nullptr);
}

#if !defined(__SANITIZE_ADDRESS__)
TEST(slab, what_cannot_be_had_is_null) {
  qvn_slab slab;
  EXPECT_EQ(slab.alloc(SIZE_MAX), nullptr);
  EXPECT_EQ(slab.alloc(SIZE_MAX / 4), nullptr);
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
  const size_t before = mapped_pages();
  for (int i = 0; i < 100; ++i) {
    qvn_slab::release(slab.alloc((size_t{3} << 20) + 100));
  }
  EXPECT_LT(mapped_pages(), before + 1000);
}
#endif

}  // namespace
