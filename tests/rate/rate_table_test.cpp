#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "rate/qvn_rate_table.h"

namespace {

constexpr int64_t kNow = 1000;
constexpr int64_t kFuture = 5000;

rate_node* make_rate(const std::string& id, int64_t effective_date) {
  rate_node* const rate = rate_node_create({.code = "44", .rate_id = id, .rate_table_id = "7"});
  rate->effective_date = effective_date;
  return rate;
}

std::vector<std::string> ids(const rp_hash_node* node) {
  std::vector<std::string> list;
  const auto* rate = node ? static_cast<const rate_node*>(node->items) : nullptr;
  for (uint64_t i = 0; rate && i < node->item_count; ++i, rate = rate->next) {
    list.emplace_back(rate->rate_id);
    EXPECT_EQ(rate->next->prev, rate);
    EXPECT_STREQ(rate->rate_table_id, "7");
  }
  return list;
}

using id_list = std::vector<std::string>;

/// A tree of rate table 7 that is loaded rate by rate at kNow.
class loading : public testing::Test {
 protected:
  ~loading() override { rp_hash_destroy(&root_, delete_rate_node); }

  void load(const std::string& id, int64_t effective_date) {
    rate_node* const rate = make_rate(id, effective_date);
    rp_hash_node* const table = rp_hash_create(&root_, "7");
    rate_node_link_superseding(root_, rp_hash_create(&table->sub, "44"), rate, kNow);
  }
  rp_hash_node* code() {
    rp_hash_node* const table = rp_hash_match_all(&root_, "7");
    return table ? rp_hash_match_all(&table->sub, "44") : nullptr;
  }

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
    EXPECT_EQ(ids(code()), test.left);
    rp_hash_destroy(&root_, delete_rate_node);
  }
}

/// The slot is handed over by value: freeing the table's only node would leave the caller on freed
/// memory.
TEST_F(loading, removing_the_last_rate_never_frees_the_callers_first_node) {
  load("0", 100);
  rp_hash_node* const table = root_;
  delete_expire_rate(root_, "44", "0", "7", 0);
  ASSERT_EQ(root_, table);
  EXPECT_EQ(code(), nullptr);
  load("1", 100);
  EXPECT_EQ(ids(code()), (id_list{"1"}));
}

TEST(record_lists, give_up_one_record_by_id_or_all) {
  rp_hash_node prefixes{};
  for (const char* const id : {"20", "1", "3"}) {
    jurisdiction_prefix_node_link(&prefixes, jurisdiction_prefix_node_create(id, "9"));
  }
  EXPECT_EQ(delete_jurisdiction_prefix_node(&prefixes, "20"), 1);
  EXPECT_EQ(prefixes.item_count, 2U);
  EXPECT_EQ(delete_jurisdiction_prefix_node(&prefixes, nullptr), 1);
  rp_hash_node deck{};
  for (const char* const id : {"5", "12", "7"}) {
    code_deck_node_link(&deck, code_deck_node_create(id, "44", "1", "UK", "London"));
  }
  EXPECT_STREQ(static_cast<const code_deck_node*>(deck.items)->code_id, "12") << "as texts";
  EXPECT_EQ(delete_code_deck_node(&deck, "5"), 0);
  EXPECT_EQ(delete_code_deck_node(&deck, nullptr), 1);
  rp_hash_node rates{};
  const std::string longest(40'000, 'a');
  for (const std::string& id : {std::string("c"), std::string("b"), longest}) {
    rate_node_link(&rates, make_rate(id, 10));
  }
  EXPECT_EQ(delete_rate_node(&rates, "x"), 0);
  EXPECT_EQ(delete_rate_node(&rates, "b"), 1);
  EXPECT_EQ(ids(&rates), (id_list{longest, "c"}));
  EXPECT_EQ(delete_rate_node(&rates, nullptr), 1);
}

TEST(time_zone_text, only_the_tables_whole_hours_count) {
  constexpr std::pair<const char*, int32_t> kCases[] = {
      {"+0000", 0}, {"+1200", 12}, {"-1200", -12}, {"-0300", -3}, {"-0500", -5}, {"-0400", 0},
      {"+0530", 0}, {"+1300", 0},  {"0100", 0},    {"", 0},       {nullptr, 0}};
  for (const auto& [text, hours] : kCases) {
    EXPECT_EQ(get_timezone_from_str(text), hours) << (text ? text : "absent");
  }
}

TEST(rate_text, begins_with_a_digit_and_holds_digits_and_points) {
  for (const char* const text : {"0", "12.", "1.2.3", "0.05", "007"}) {
    EXPECT_EQ(qvn_is_rate(text), 1) << text;
  }
  for (const char* const text : {"", ".5", "-1", "1e3", "1,5", " 1", "1 ", "+1"}) {
    EXPECT_EQ(qvn_is_rate(text), 0) << text;
  }
  EXPECT_EQ(qvn_is_rate(nullptr), 0);
}

}  // namespace
