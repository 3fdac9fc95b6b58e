#include "rate/rp_hash.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <sys/mman.h>
#include <vector>

namespace {

/// Payload for the tests: only counted, so one address serves all.
int payload;

int32_t free_one(rp_hash_node* node, const void* argument) {
  if (argument) {
    --node->item_count;
  } else {
    node->item_count = 0;
  }
  if (node->item_count == 0) {
    node->items = nullptr;
  }
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
  rp_hash_node* search(const std::string& key) { return rp_hash_search(&root_, key.c_str()); }
  rp_hash_node* exact(const std::string& key) { return rp_hash_match_all(&root_, key.c_str()); }
  int32_t remove(const std::string& key) {
    return rp_hash_delete(&root_, key.c_str(), free_one, &payload);
  }

  rp_hash_node* root_ = nullptr;
};

using prefix_tree_test = prefix_tree;

TEST_F(prefix_tree_test, longest_inserted_prefix_answers_a_search) {
  rp_hash_node* const one = insert("1");
  rp_hash_node* const twelve = insert("12");
  rp_hash_node* const hundred = insert("123");
  EXPECT_EQ(search("1234"), hundred);
  EXPECT_EQ(search("123"), hundred);
  EXPECT_EQ(search("129"), twelve);
  EXPECT_EQ(search("13"), one);
  EXPECT_EQ(search("2"), nullptr);
  EXPECT_EQ(search(""), nullptr);
}

TEST_F(prefix_tree_test, path_without_terminal_node_is_no_match) {
  insert("12");
  EXPECT_EQ(search("1"), nullptr);
  EXPECT_EQ(exact("1"), nullptr);
}

TEST_F(prefix_tree_test, empty_key_is_the_default_of_a_search_but_never_of_an_exact_match) {
  rp_hash_node* const fallback = insert("");
  insert("44");
  for (const char* const number : {"2", "4", "99999", ""}) {
    EXPECT_EQ(search(number), fallback) << number;
  }
  EXPECT_EQ(exact(""), fallback);
  EXPECT_EQ(exact("2"), nullptr) << "a key of one byte has the depth of the empty key";
  EXPECT_EQ(exact("22"), nullptr);
}

TEST_F(prefix_tree_test, key_lengths_are_counted_in_eight_bits) {
  rp_hash_node* const empty = insert(std::string(256, '7'));
  EXPECT_EQ(exact(""), empty);
  rp_hash_node* const cut = insert(std::string(300, '8'));
  EXPECT_EQ(exact(std::string(44, '8')), cut);
  insert(std::string(255, '9'));
  EXPECT_NE(exact(std::string(255, '9')), nullptr);
  EXPECT_EQ(exact(std::string(257, '9')), nullptr);
}

TEST_F(prefix_tree_test, new_nodes_stand_at_the_head_of_their_level) {
  insert("1");
  insert("2");
  insert("21");
  rp_hash_node* const newest = insert("22");
  EXPECT_EQ(root_->ch, '2');
  EXPECT_EQ(root_->next->ch, '1');
  EXPECT_EQ(root_->children, newest);
  EXPECT_EQ(newest->prev, nullptr);
  EXPECT_EQ(newest->next->prev, newest);
  EXPECT_EQ(newest->parent, root_);
}

TEST_F(prefix_tree_test, each_insertion_needs_its_own_deletion) {
  insert("44");
  insert("44");
  EXPECT_EQ(exact("44")->pass_count, 1U);
  EXPECT_EQ(remove("44"), 1) << "an item remains";
  EXPECT_EQ(exact("44")->pass_count, 1U) << "the path is left as it is while items remain";
  EXPECT_EQ(remove("44"), 1);
  EXPECT_EQ(exact("44"), nullptr);
  EXPECT_EQ(remove("44"), 0);
}

TEST_F(prefix_tree_test, deletion_keeps_what_other_keys_need) {
  insert("441");
  insert("442");
  EXPECT_EQ(remove("441"), 1);
  EXPECT_EQ(exact("441"), nullptr);
  ASSERT_NE(exact("442"), nullptr);
  EXPECT_EQ(root_->pass_count, 0U);
  EXPECT_EQ(remove("442"), 1);
  EXPECT_EQ(root_, nullptr);
}

TEST_F(prefix_tree_test, refused_callback_leaves_the_tree_alone) {
  insert("44");
  EXPECT_EQ(rp_hash_delete(
                &root_, "44", [](rp_hash_node*, const void*) { return 0; }, &payload),
            0);
  EXPECT_NE(exact("44"), nullptr);
}

TEST_F(prefix_tree_test, node_with_children_or_nested_tree_is_never_freed) {
  rp_hash_node* const outer = insert("7");
  rp_hash_node* const inner = rp_hash_create(&outer->sub, "44");
  inner->items = &payload;
  inner->item_count = 1;
  EXPECT_EQ(rp_hash_delete(&root_, "7", nullptr, nullptr), 1);
  ASSERT_EQ(root_, outer);
  EXPECT_EQ(rp_hash_match_all(&outer->sub, "44"), inner);
}

TEST_F(prefix_tree_test, absent_arguments_do_nothing) {
  EXPECT_EQ(rp_hash_create(nullptr, "1"), nullptr);
  EXPECT_EQ(rp_hash_create(&root_, nullptr), nullptr);
  EXPECT_EQ(rp_hash_search(nullptr, "1"), nullptr);
  EXPECT_EQ(rp_hash_search(&root_, nullptr), nullptr);
  EXPECT_EQ(rp_hash_match_all(&root_, nullptr), nullptr);
  EXPECT_EQ(rp_hash_delete(&root_, "1", nullptr, nullptr), 0);
  EXPECT_EQ(rp_hash_destroy(&root_, nullptr), 0);
  EXPECT_EQ(rp_hash_record(&root_, nullptr, nullptr), 0);
}

TEST_F(prefix_tree_test, visit_reaches_every_payload_below_first) {
  insert("1");
  insert("12");
  rp_hash_node* const inner = rp_hash_create(&exact("12")->sub, "5");
  inner->items = &payload;
  std::vector<int> seen;
  EXPECT_EQ(rp_hash_record(
                &root_,
                [](rp_hash_node* node, void* list) {
                  static_cast<std::vector<int>*>(list)->push_back(node->ch);
                  return 1;
                },
                &seen),
            1);
  EXPECT_EQ(seen, (std::vector<int>{'5', '2', '1'}));
}

TEST_F(prefix_tree_test, crowded_levels_take_any_byte) {
  std::map<std::string, rp_hash_node*> nodes;
  for (const char* const start : {"4", "44", "4#"}) {
    for (unsigned byte = 255; byte > 0; --byte) {
      const std::string key = start + std::string(1, static_cast<char>(byte));
      nodes[key] = insert(key);
    }
  }
  for (const auto& [key, node] : nodes) {
    EXPECT_EQ(exact(key), node) << key;
  }
}

/// The tree against a plain map under random insertions, searches and deletions. Without the empty
/// key, whose node goes on as the default of searches after a deletion that left the path's counts
/// as they were.
class random_operations : public prefix_tree {
 protected:
  void run(int steps) {
    for (int step = 0; step < steps; ++step) {
      const std::string key = random_key();
      switch (random_() % 3) {
        case 0:
          insert(key);
          ++model_[key];
          break;
        case 1:
          ASSERT_EQ(remove(key), model_.contains(key) ? 1 : 0) << key;
          if (model_.contains(key) && --model_[key] == 0) {
            model_.erase(key);
          }
          break;
        default:
          const std::string number = key + "2";
          const rp_hash_node* const found = search(number);
          ASSERT_EQ(found ? int64_t{found->item_count} : -1, model_search(number)) << number;
          ASSERT_EQ(exact(key) != nullptr, model_.contains(key)) << key;
      }
    }
    EXPECT_EQ(items_in_lists(), items_in_model());
  }

  const std::random_device::result_type seed_ = std::random_device{}();
  std::mt19937 random_{seed_};

 private:
  /// Few enough keys that levels fill, empty and fill again.
  std::string random_key() {
    std::string key(1 + random_() % 4, '0');
    for (char& byte : key) {
      byte = "0129#"[random_() % 5];
    }
    return key;
  }

  int64_t model_search(std::string key) {
    while (!key.empty() && !model_.contains(key)) {
      key.pop_back();
    }
    return model_.contains(key) ? static_cast<int64_t>(model_[key]) : -1;
  }

  /// What a search finds and what the sibling lists hold are to be the same.
  uint64_t items_in_lists() {
    uint64_t count = 0;
    rp_hash_record(
        &root_,
        [](rp_hash_node* node, void* sum) {
          *static_cast<uint64_t*>(sum) += node->item_count;
          return 1;
        },
        &count);
    return count;
  }

  uint64_t items_in_model() const {
    uint64_t count = 0;
    for (const auto& [key, items] : model_) {
      count += items;
    }
    return count;
  }

  std::map<std::string, uint64_t> model_;
};

using random_operations_test = random_operations;

TEST_F(random_operations_test, tree_behaves_like_a_map_of_prefixes) {
  SCOPED_TRACE(testing::Message() << "seed " << seed_);
  run(40000);
}

#if !defined(__SANITIZE_ADDRESS__)
/// Indexes reach nodes by distances of up to 64 GiB. A daemon that holds the calls of a day may
/// get memory from farther away.
TEST_F(random_operations_test, nodes_may_lie_anywhere_in_the_address_space) {
  SCOPED_TRACE(testing::Message() << "seed " << seed_);
  constexpr std::size_t kGap = std::size_t{160} << 30;
  constexpr int64_t kReach = int64_t{64} << 30;
  run(3000);
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
  const bool apart = is_far(newest);
  run(40000);
  rp_hash_destroy(&others, nullptr);
  rp_hash_destroy(&root_, free_one);
  (void)munmap(gap, kGap);
  if (!apart) {
    GTEST_SKIP() << "the kernel put new memory beside the old";
  }
}
#endif

}  // namespace
