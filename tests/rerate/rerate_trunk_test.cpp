#include "rerate/rerate_trunk.h"

#include <gtest/gtest.h>

#include "rate/qvn_rate_table.h"

namespace {

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
