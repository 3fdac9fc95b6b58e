#include "rate/rp_hash.h"

#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
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

/// The tree against a plain map under random insertions, searches and deletions. Without the empty
/// key, whose node goes on as the default of searches after a deletion that left the path's counts
/// as they were.
TEST_F(prefix_tree_test, behaves_like_a_map_of_prefixes) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  std::map<std::string, uint64_t> model;
  const auto random_key = [&] {
    std::string key(1 + random() % 4, '0');
    for (char& digit : key) {
      digit = static_cast<char>('0' + random() % 3);
    }
    return key;
  };
  const auto model_search = [&](std::string key) {
    while (!key.empty() && !model.contains(key)) {
      key.pop_back();
    }
    return model.contains(key) ? static_cast<int64_t>(model[key]) : -1;
  };
  for (int step = 0; step < 20000; ++step) {
    const std::string key = random_key();
    switch (random() % 3) {
      case 0:
        insert(key);
        ++model[key];
        break;
      case 1:
        ASSERT_EQ(remove(key), model.contains(key) ? 1 : 0) << key;
        if (model.contains(key) && --model[key] == 0) {
          model.erase(key);
        }
        break;
      default:
        const std::string number = key + "2";
        const rp_hash_node* const found = search(number);
        ASSERT_EQ(found ? static_cast<int64_t>(found->item_count) : -1, model_search(number));
        ASSERT_EQ(exact(key) != nullptr, model.contains(key)) << key;
    }
  }
}

}  // namespace
