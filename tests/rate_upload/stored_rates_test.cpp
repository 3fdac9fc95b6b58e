#include "rate_upload/stored_rates.h"

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "rate/qvn_rate_table.h"

namespace {

constexpr int64_t kNow = 1000;
constexpr int64_t kFuture = 5000;

using id_list = std::vector<std::string>;

/// The rates of rate table 7, loaded one by one at kNow; beside them the tree that they must equal.
class loading : public testing::Test {
 protected:
  ~loading() override { clear(); }

  void load(const std::string& id, int64_t effective_date, const std::string& code = "44") {
    ASSERT_TRUE(rates_.add(code, id, effective_date, kNow));
    rate_node* const rate = rate_node_create({.code = code, .rate_id = id, .rate_table_id = "7"});
    rate->effective_date = effective_date;
    rp_hash_node* const table = rp_hash_create(&root_, "7");
    rate_node_link_superseding(root_, rp_hash_create(&table->sub, code.c_str()), rate, kNow);
  }
  id_list ids(const char* code = "44") const {
    id_list list;
    rates_.look_through(code, [&](const stored_rate& rate) {
      list.emplace_back(rate.rate_id);
      return true;
    });
    return list;
  }
  rp_hash_node* in_tree(const char* code = "44") const {
    const rp_hash_node* const table = rp_hash_match_all(&root_, "7");
    return table ? rp_hash_match_all(&table->sub, code) : nullptr;
  }
  id_list ids_in_tree(const char* code) const {
    id_list list;
    const rp_hash_node* const node = in_tree(code);
    const auto* rate = node ? static_cast<const rate_node*>(node->items) : nullptr;
    for (uint64_t i = 0; rate && i < node->item_count; ++i, rate = rate->next)
      list.emplace_back(rate->rate_id);
    return list;
  }
  void clear() {
    rates_.clear();
    rp_hash_destroy(&root_, delete_rate_node);
  }

  stored_rates rates_;
  rp_hash_node* root_ = nullptr;
};

struct superseding_case {
  const char* name;
  std::vector<int64_t> dates;  // loaded in this order as rates "0", "1", ...
  id_list left;
};

TEST_F(loading, of_rates_in_force_only_the_latest_is_kept) {
  const superseding_case cases[] = {
      {"a newer rate in force replaces the older", {100, 200}, {"1"}},
      {"an older rate is removed again", {200, 100}, {"0"}},
      {"a future rate replaces nothing", {100, kFuture}, {"0", "1"}},
      {"before a first rate that is not in force all stay", {kFuture, 100}, {"1", "0"}},
      {"equal dates stay", {100, 100}, {"1", "0"}},
      {"all of the first date go", {100, 100, 200}, {"2"}},
      {"now itself is not yet in force", {100, kNow}, {"0", "1"}},
  };
  for (const superseding_case& test : cases) {
    SCOPED_TRACE(test.name);
    for (std::size_t i = 0; i < test.dates.size(); ++i) {
      load(std::to_string(i), test.dates[i]);
    }
    EXPECT_EQ(ids(), test.left);
    clear();
  }
}

/// The slot is handed over by value: freeing the table's only node would leave the caller on freed
/// memory.
TEST_F(loading, removing_the_last_rate_never_frees_the_callers_first_node) {
  load("0", 100);
  rp_hash_node* const table = root_;
  delete_expire_rate(root_, "44", "0", "7", 0);
  ASSERT_EQ(root_, table);
  EXPECT_EQ(in_tree(), nullptr);
  load("1", 100);
  EXPECT_EQ(ids_in_tree("44"), (id_list{"1"}));
}

TEST_F(loading, keeps_of_any_rates_what_the_tree_keeps) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  // The last two are known as the first and as nothing.
  const std::string codes[] = {"44", "441", "x", "44" + std::string(256, '4'),
                               std::string(256, '4')};
  for (const int dates : {3, 20, 3000}) {
    for (int id = 0; id < 2000; ++id) {
      const int64_t date = kNow + (random() % dates) - (random() % 8 == 0 ? dates : 0);
      load(std::to_string(id), date, codes[random() % 16 == 0 ? random() % 5 : 0]);
    }
    for (const std::string& code : codes)
      ASSERT_EQ(ids(code.c_str()), ids_in_tree(code.c_str())) << code;
    clear();
  }
}

}  // namespace
