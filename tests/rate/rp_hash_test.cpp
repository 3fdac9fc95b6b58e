// What the model of fuzz/prefix_tree.cpp leaves open: where in memory nodes lie.
#include "rate/rp_hash.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <vector>

#include "base/qvn_sanitizer.h"

namespace {

TEST(prefix_tree, absent_arguments_do_nothing) {
  rp_hash_node* root = nullptr;
  EXPECT_FALSE(rp_hash_create(nullptr, "1") || rp_hash_create(&root, nullptr));
  EXPECT_FALSE(rp_hash_search(nullptr, "1") || rp_hash_search(&root, nullptr));
  EXPECT_EQ(rp_hash_match_all(&root, nullptr), nullptr);
  EXPECT_EQ(rp_hash_delete(&root, "1", nullptr, nullptr), 0);
  EXPECT_FALSE(rp_hash_destroy(&root, nullptr) != 0 || rp_hash_record(&root, nullptr, nullptr));
}

#if !QVN_ADDRESS_SANITIZER
/// Indexes reach nodes by distances of up to 64 GiB. A daemon that holds the calls of a day may
/// get memory from farther away: then crowded levels have nodes on both sides of the gap.
TEST(prefix_tree, nodes_may_lie_anywhere_in_the_address_space) {
  constexpr std::size_t kGap = std::size_t{160} << 30;
  constexpr int64_t kReach = int64_t{64} << 30;
  rp_hash_node* root = nullptr;
  std::vector<std::pair<std::string, rp_hash_node*>> nodes;
  const auto insert_under = [&](const std::string& start) {
    for (char byte = '!'; byte <= '~'; ++byte) {
      for (const std::string& key : {start + byte, byte + start}) {
        nodes.emplace_back(key, rp_hash_create(&root, key.c_str()));
      }
    }
  };
  insert_under("44");
  const auto before = reinterpret_cast<intptr_t>(root);
  void* const gap =
      mmap(nullptr, kGap, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (gap == MAP_FAILED) {
    GTEST_SKIP() << "no address space for the gap";
  }
  rp_hash_node* others = nullptr;
  const auto is_far = [before](const rp_hash_node* node) {
    return std::abs(reinterpret_cast<intptr_t>(node) - before) > kReach;
  };
  // Until the memory mapped before the gap is used up.
  const rp_hash_node* newest = nullptr;
  for (int i = 0; i < 1'000'000 && !(newest && is_far(newest)); ++i) {
    newest = rp_hash_create(&others, std::to_string(i).c_str());
  }
  insert_under("445");
  insert_under("4");
  for (const auto& [key, node] : nodes) {
    EXPECT_EQ(rp_hash_match_all(&root, key.c_str()), node) << key;
    EXPECT_EQ(rp_hash_search(&root, key.c_str()), node) << key;
  }
  const bool apart = is_far(newest);
  rp_hash_destroy(&others, nullptr);
  rp_hash_destroy(&root, nullptr);
  (void)munmap(gap, kGap);
  if (!apart) {
    GTEST_SKIP() << "the kernel put new memory beside the old";
  }
}
#endif

}  // namespace
