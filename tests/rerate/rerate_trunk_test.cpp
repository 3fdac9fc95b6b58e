#include "rerate/rerate_trunk.h"

#include <gtest/gtest.h>

#include "rate/qvn_rate_table.h"

namespace {

/// The trunks as "id flag table date", in the order of the list; "invalid" at the end of a refused
/// text.
std::string parsed(const std::string& text) {
  rerate_trunk_list trunks;
  const bool valid = rerate_trunk_text_parse(text, trunks);
  std::string result;
  for (const rerate_trunk& trunk : trunks) {
    result += trunk.id + " " + std::to_string(trunk.enabled) + " " + trunk.rate_table_id + " " +
              std::to_string(trunk.rate_date) + ";";
  }
  return result + (valid ? "" : "invalid");
}

TEST(trunk_text, items_come_in_reverse_order) {
  EXPECT_EQ(parsed("12,1,7,1500000000;13,0,,"), "13 0  0;12 1 7 1500000000;");
  EXPECT_EQ(parsed("12,1,7,0;"), "12 1 7 0;");
  EXPECT_EQ(parsed(""), "");
  EXPECT_EQ(parsed("12,0,7,5"), "12 0  0;");  // table and date of a trunk that is not rated
}

TEST(trunk_text, items_that_lack_something_are_refused) {
  for (const char* text : {"12", "12,1", "12,1,7", "12,0,", ",1,7,0", "12,,7,0", "12,1,,0",
                           "12,1,7,", ";", ";12,1,7,0"}) {
    EXPECT_EQ(parsed(text), "invalid") << text;
  }
  EXPECT_EQ(parsed("12,1,7,0;13"), "12 1 7 0;invalid");
  EXPECT_EQ(parsed("12,1,7,0;;13,0,,"), "12 1 7 0;invalid");
}

TEST(trunk_text, flag_is_a_number_of_8_bits) {
  EXPECT_EQ(parsed("12,257,,"), "invalid");  // 1
  EXPECT_EQ(parsed("12,256,,"), "12 0  0;");
  EXPECT_EQ(parsed("12,t,,"), "12 0  0;");
  EXPECT_EQ(parsed("12,01x,7,9z,9"), "12 1 7 9;");
}

TEST(trunk_text, ids_are_cut_at_63_characters) {
  const std::string seventy(70, '9');
  const std::string kept(63, '9');
  EXPECT_EQ(parsed(seventy + ",1," + seventy + ",0"), kept + " 1 " + kept + " 0;");
}

void add_rate(rerate_trunk& trunk) {
  rp_hash_node* const table = rp_hash_create(&trunk.rate_tree, "7");
  rate_node_link(rp_hash_create(&table->sub, "44"), rate_node_create({.code = "44"}));
}

// The address sanitizer watches: an owner that goes first, a borrower that goes first, and one that
// owns again after having borrowed.
TEST(trunk_rates, only_the_owner_frees_what_is_shared) {
  rerate_trunk_list trunks;
  rerate_trunk& owner = trunks.emplace_front();
  rerate_trunk& borrower = trunks.emplace_front();
  add_rate(owner);
  owner.loaded_rate_date = 5;
  borrower.borrow_rates(owner);
  EXPECT_EQ(borrower.loaded_rate_date, 5);
  borrower.forget_rates();
  EXPECT_NE(owner.rate_tree, nullptr);
  borrower.borrow_rates(owner);
  owner.forget_rates();
  borrower.forget_rates();
  EXPECT_EQ(borrower.rate_tree, nullptr);
  add_rate(borrower);
  owner.borrow_rates(borrower);
}

}  // namespace
