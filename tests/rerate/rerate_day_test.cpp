#include "rerate/rerate_day.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>

namespace {

constexpr int64_t kMidnight = 1772323200;  // 2026-03-01 00:00:00 UTC
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
