#include "rerate/rerate_day.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>

#include "base/qvn_time.h"
#include "support/rounds.h"

namespace {

constexpr int64_t kMidnight = 1772323200;  // 2026-03-01 00:00:00 UTC
constexpr uint64_t kYear10000 = 253'402'300'800;
constexpr int64_t kHour = 3600;
constexpr int64_t kDay = 24 * kHour;

class rerate_days_test : public testing::Test {
 protected:
  ~rerate_days_test() override { zone("UTC"); }

  static void zone(const char* name) {
    setenv("TZ", name, 1);
    tzset();
  }

  /// The days as "date lower upper", and how the walk ends.
  static std::string walk(int64_t from, int64_t to) {
    rerate_days days(from, to);
    std::string text;
    for (int i = 0; i < 10; ++i) {
      const std::optional<rerate_day> day = days.next();
      if (!day) {
        return text + (days.failed() ? "failed" : "");
      }
      text += day->date + " " + (day->lower.empty() ? "-" : day->lower.substr(8, 11)) + " " +
              (day->upper.empty() ? "-" : day->upper.substr(8, 11)) + "\n";
    }
    return text + "...";
  }
};

// The faults: east of UTC the local day's end lies in the middle of the date, and the walk stayed
// on it for ever; the last date had no upper bound when `to` lay after that end.
TEST_F(rerate_days_test, advance_east_and_west_of_utc) {
  zone("Test-5");  // five hours east
  EXPECT_EQ(walk(kMidnight, kMidnight + 2 * kDay - 1),
            "2026-03-01 01 00:00:00 -\n2026-03-02 - 02 23:59:59\n");
  zone("Test+5");
  EXPECT_EQ(walk(kMidnight + 6 * kHour, kMidnight + 2 * kDay - 1),
            "2026-03-01 01 06:00:00 -\n2026-03-02 - 02 23:59:59\n");
}

TEST_F(rerate_days_test, follow_one_another_and_only_the_ends_of_the_range_have_bounds) {
  zone("UTC");
  const unsigned seed = support::seed();
  SCOPED_TRACE(testing::Message() << "QVN_SEED=" << seed);
  std::mt19937_64 random(seed);
  for (int i = 0; i < 20'000; ++i) {
    const auto from = static_cast<int64_t>(random() % kYear10000);
    const int64_t to = from + static_cast<int64_t>(random() % (4 * kDay)) - kHour;
    rerate_days days(from, to);
    for (int64_t start = from - from % kDay; start <= to; start += kDay) {
      const auto day = days.next();
      ASSERT_TRUE(day && day->start == start) << from << " to " << to;
      ASSERT_EQ(day->lower, start < from ? qvn_utc_timestamp(from) : "");
      ASSERT_EQ(day->upper, to < start + kDay ? qvn_utc_timestamp(to) : "");
      std::string digits = day->date;
      ASSERT_EQ(digits + " 00:00:00+00", qvn_utc_timestamp(start));
      std::erase(digits, '-');
      ASSERT_EQ(day->table, "client_cdr" + digits);
    }
    ASSERT_TRUE(!days.next() && !days.failed());
  }
}

TEST_F(rerate_days_test, times_without_a_date_fail_at_once) {
  zone("UTC");
  constexpr int64_t kEnd = std::numeric_limits<int64_t>::max();
  EXPECT_EQ(walk(kEnd - 1, kEnd), "failed");
  EXPECT_EQ(walk(-kEnd, kMidnight), "failed");
  EXPECT_EQ(walk(kMidnight, kEnd), "failed");
  // The last year that a date can have.
  constexpr int64_t kLastSecond = 67'768'036'191'676'799;
  const std::string end = walk(kLastSecond - kDay, kLastSecond);
  EXPECT_TRUE(end.ends_with("\n") || end.ends_with("failed")) << end;
}

}  // namespace
