#include <array>
#include <gtest/gtest.h>

#include "db/qvn_poll_budget.h"

namespace {

using namespace std::chrono_literals;
constexpr poll_budget::time_point kNow{1h};

TEST(poll_budget, silent_databases_cost_a_cycle_less_and_less) {
  poll_record slow{}, silent{}, other{};
  poll_budget first(1, 5s);
  EXPECT_EQ(first.for_trusted().connect, 5s);
  EXPECT_EQ(first.for_trusted().whole, 15s);
  first.note(slow, 1s, false, kNow);
  EXPECT_EQ(first.for_trusted().statement, 10s);
  first.note(silent, 5s, true, kNow);
  EXPECT_TRUE(silent.suspected && !slow.suspected);
  EXPECT_EQ(first.for_trusted().whole, 500ms);

  poll_budget second(2, 5s);
  EXPECT_EQ(second.for_suspected(silent, kNow + 10s)->whole, 2s);
  second.note(silent, 2s, true, kNow + 10s);
  EXPECT_FALSE(second.is_due(silent));
  EXPECT_TRUE(second.is_due(other));
  EXPECT_EQ(second.for_trusted().whole, 15s);                      // what was expected is not lost
  EXPECT_EQ(second.for_suspected(silent, kNow + 60s)->whole, 5s);  // once a minute
  EXPECT_EQ(second.for_suspected(silent, kNow + 70s)->whole, 2s);
  other.suspected = true;
  second.note(other, 7s, true, kNow + 20s);
  EXPECT_EQ(second.for_suspected(silent, kNow + 71s)->whole, 1s);  // what is left of the share
  second.note(silent, 1s, false, kNow + 72s);
  EXPECT_FALSE(silent.suspected);  // it has answered
  EXPECT_FALSE(second.for_suspected(other, kNow + 73s));
}

}  // namespace
