#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "base/qvn_slab.h"
#include "rate/qvn_rate_table.h"

namespace {

rate_node* make_rate(const std::string& id, int64_t effective_date) {
  rate_node* const rate = rate_node_create({.code = "44", .rate_id = id, .rate_table_id = "7"});
  rate->effective_date = effective_date;
  return rate;
}

/// The ids of a node's rates, which are linked both ways.
std::vector<std::string> ids(const rp_hash_node& node) {
  std::vector<std::string> list;
  const auto* rate = static_cast<const rate_node*>(node.items);
  for (; list.size() < node.item_count; rate = rate->next) {
    list.emplace_back(rate->rate_id);
    EXPECT_EQ(rate->next->prev, rate);
    EXPECT_STREQ(rate->rate_table_id, "7");
  }
  return list;
}

/// The slot is handed over by value: freeing the table's only node would leave the caller on freed
/// memory.
TEST(expiry, of_the_last_rate_never_frees_the_callers_first_node) {
  rate_node_tree rates;
  rate_node* const rate = make_rate("0", 100);
  rate_node_link(rates.create("7", "44"), rate);
  rp_hash_node* const table = rates.root();
  expire_rate_req* request = nullptr;
  create_del_expire_rate(rate, 1, &request, 100);
  delete_expire_rate(table, request->code, request->rate_id, request->rate_table_id, 0);
  qvn_slab::release(request);
  ASSERT_EQ(rp_hash_match_all(rates.slot(), "7"), table);
  EXPECT_EQ(rp_hash_match_all(&table->sub, "44"), nullptr);
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
  EXPECT_EQ(ids(rates), (std::vector<std::string>{longest, "c"}));
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
