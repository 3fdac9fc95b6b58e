// What the model of fuzz/prefix_tree.cpp leaves open: orders, and where in memory nodes lie.
#include "rate/rp_hash.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <vector>

#include "base/qvn_sanitizer.h"

namespace {

/// Payload for the tests: only counted, so one address serves all.
int payload;

int32_t free_one(rp_hash_node* node, const void* /*argument*/) {
  node->item_count = 0;
  node->items = nullptr;
  return 1;
}

class prefix_tree : public testing::Test {
 protected:
  ~prefix_tree() override { rp_hash_destroy(&root_, free_one); }

  rp_hash_node* insert(const std::string& key) {
    rp_hash_node* const node = rp_hash_create(&root_, key.c_str());
    node->items = &payload;
    ++node->item_count;
    return node;
  }
  rp_hash_node* exact(const std::string& key) { return rp_hash_match_all(&root_, key.c_str()); }

  rp_hash_node* root_ = nullptr;
};

TEST_F(prefix_tree, refused_callback_leaves_the_tree_alone) {
  insert("44");
  EXPECT_EQ(rp_hash_delete(
                &root_, "44", [](rp_hash_node*, const void*) { return 0; }, &payload),
            0);
  EXPECT_NE(exact("44"), nullptr);
}

TEST_F(prefix_tree, absent_arguments_do_nothing) {
  EXPECT_FALSE(rp_hash_create(nullptr, "1") || rp_hash_create(&root_, nullptr));
  EXPECT_FALSE(rp_hash_search(nullptr, "1") || rp_hash_search(&root_, nullptr));
  EXPECT_EQ(rp_hash_match_all(&root_, nullptr), nullptr);
  EXPECT_EQ(rp_hash_delete(&root_, "1", nullptr, nullptr), 0);
  EXPECT_FALSE(rp_hash_destroy(&root_, nullptr) != 0 || rp_hash_record(&root_, nullptr, nullptr));
}

TEST_F(prefix_tree, visit_reaches_every_payload_below_first_and_the_newest_of_a_level_first) {
  insert("1");
  insert("12");
  insert("13");
  rp_hash_create(&exact("12")->sub, "5")->items = &payload;
  std::string seen;
  EXPECT_EQ(rp_hash_record(
                &root_,
                [](rp_hash_node* node, void* list) {
                  *static_cast<std::string*>(list) += static_cast<char>(node->ch);
                  return 1;
                },
                &seen),
            1);
  EXPECT_EQ(seen, "3521");
}

#if !QVN_ADDRESS_SANITIZER
/// Indexes reach nodes by distances of up to 64 GiB. A daemon that holds the calls of a day may
/// get memory from farther away: then crowded levels have nodes on both sides of the gap.
TEST_F(prefix_tree, nodes_may_lie_anywhere_in_the_address_space) {
  constexpr std::size_t kGap = std::size_t{160} << 30;
  constexpr int64_t kReach = int64_t{64} << 30;
  std::vector<std::pair<std::string, rp_hash_node*>> nodes;
  const auto insert_under = [&](const std::string& start) {
    for (char byte = '!'; byte <= '~'; ++byte) {
      for (const std::string& key : {start + byte, byte + start}) {
        nodes.emplace_back(key, insert(key));
      }
    }
  };
  insert_under("44");
  const auto before = reinterpret_cast<intptr_t>(root_);
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
    EXPECT_EQ(exact(key), node) << key;
    EXPECT_EQ(rp_hash_search(&root_, key.c_str()), node) << key;
  }
  const bool apart = is_far(newest);
  rp_hash_destroy(&others, nullptr);
  rp_hash_destroy(&root_, free_one);
  (void)munmap(gap, kGap);
  if (!apart) {
    GTEST_SKIP() << "the kernel put new memory beside the old";
  }
}
#endif

}  // namespace
