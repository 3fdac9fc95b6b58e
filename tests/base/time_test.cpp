// What the model of fuzz/time_text.cpp leaves open: oddities of dates, zones and sums.
#include <array>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>

#include "base/qvn_time.h"

namespace {

constexpr int64_t kHour = 3600;
constexpr int64_t kJune27 = 1466985600;  // 2016-06-27 00:00:00 UTC

/// Puts the process into a time zone for one test.
class TimeZone : public testing::Test {
 protected:
  static void use(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }
  void TearDown() override { use("UTC"); }
};

TEST(AddTime, MillisecondsCarryUpTo999999) {
  const struct {
    timeval start;
    uint32_t milliseconds;
    time_t seconds;
    suseconds_t microseconds;
  } cases[] = {{{10, 0}, 0, 10, 0},
               {{10, 999'999}, 1, 11, 999},
               {{10, 500'000}, 999'999, 1010, 499'000},
               {{10, 500'000}, 1'000'999, 1010, 0}};
  for (const auto& c : cases) {
    timeval time = c.start;
    qvn_add_gettimeofday(&time, c.milliseconds);
    EXPECT_EQ(time.tv_sec, c.seconds) << c.milliseconds;
    EXPECT_EQ(time.tv_usec, c.microseconds) << c.milliseconds;
  }
  timeval time{10, 999'999};
  qvn_add_gettimeofday_us(&time, std::numeric_limits<uint32_t>::max());
  EXPECT_EQ(time.tv_sec, 10 + 4295);
  EXPECT_EQ(time.tv_usec, 967'294);
}

TEST(Sleep, LastsAtLeastAsLongAsAsked) {
  using namespace std::chrono_literals;
  const auto time_of = [](void (*sleep)(uint32_t), uint32_t count) {
    const auto before = std::chrono::steady_clock::now();
    sleep(count);
    return std::chrono::steady_clock::now() - before;
  };
  EXPECT_GE(time_of(qvn_msleep, 103), 103ms);
  EXPECT_GE(time_of(qvn_sleep, 1), 1s);
  EXPECT_GE(time_of(qvn_usleep, 1'000'000), 2s) << "whole seconds count twice";
}

TEST(Clock, CountsSinceTheEpochAndSundayIsWeekday7) {
  const time_t before = time(nullptr);
  EXPECT_GE(qvn_longtime_usec() / 1'000'000, before);
  EXPECT_LE(qvn_longtime_msec() / 1000, time(nullptr) + 1);
  tm now{};
  ASSERT_EQ(qvn_gmtime_r(&now), &now);
  EXPECT_EQ(qvn_gmtime_r(nullptr), nullptr);
  EXPECT_EQ(now.tm_wday, (before / 86400 + 3) % 7 + 1);
}

TEST_F(TimeZone, OffsetIsInWholeHoursTowardZeroEastPositive) {
  const struct {
    const char* zone;
    int32_t hours;
  } cases[] = {{"UTC", 0},
               {"<+0530>-5:30", 5},
               {"<-0330>3:30", -3},
               // In summer time all the year.
               {"AAA-1BBB-2,0/0,J365/25", 2}};
  for (const auto& c : cases) {
    use(c.zone);
    EXPECT_EQ(qvn_get_timezone(), c.hours) << c.zone;
  }
}

TEST_F(TimeZone, DatesAreWrittenInLocalTimeAndForTheDatabaseInUtc) {
  use("<+08>-8");
  std::array<char, 22> out{"kept"};
  qvn_int_date_to_string(std::numeric_limits<int64_t>::max(), out.data());
  EXPECT_STREQ(out.data(), "kept") << "out of range";
  EXPECT_EQ(qvn_utc_timestamp(std::numeric_limits<int64_t>::max()), "");
  qvn_int_date_to_string(-9 * kHour, out.data());
  EXPECT_STREQ(out.data(), "1969-12-31 23:00:00");
  EXPECT_EQ(qvn_utc_timestamp(kJune27), "2016-06-27 00:00:00+00");
  // Years of five and more digits need more room than the caller has.
  use("UTC");
  out.fill('#');
  qvn_int_date_to_string(67768036191676799, out.data());  // the last second of the largest year
  EXPECT_STREQ(out.data(), "2147485547-12-31 23");
  EXPECT_EQ(out[20], '#');
}

TEST_F(TimeZone, DatesAreReadAsLocalTimeOrRefusedWith0) {
  use("<+08>-8");
  constexpr int64_t kMidnight = kJune27 - 8 * kHour;
  const struct {
    const char* text;
    int64_t time;
  } cases[] = {
      {"2016-6-27", kMidnight},
      {"2016-06-27 15:05:09.123", kMidnight + 15 * kHour + 309},
      {"2016-06-27 15:05", kMidnight + 15 * kHour},  // the hour alone without a second colon
      {"2016-06-27 :30:00", kMidnight + 1800},
      {"2016-06-27 15", kMidnight},
      {"2016-05-58", kMidnight},  // normalised
      {"2015-18-27", kMidnight},
      {"2016-06-27x", kMidnight},
      {"2016-06-00000000000027", 0},  // cut at 20 characters: day 0
      {"2016-06-27 24:00:00", 0},
      {"2016-06-27 -1:00:00", 0},
      {"2016-06-27 15:60:00", 0},
      {"2016-06-27 15:05:60", 0},
      {"2016-00-01", 0},
      {"0-01-01", 0},
      {"2016--01", 0},
      {"2016-01- 01:00:00", 0},
      {"2016-01", 0},
      {"", 0},
      {nullptr, 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(qvn_string_date_to_int(c.text), c.time) << (c.text ? c.text : "(absent)");
  }
  // Numbers come from files unchecked; under the sanitizers an overflow would end the test.
  for (const char* text : {"2147483647-01-01", "1-2147483647-1", "1-1-2147483647"}) {
    (void)qvn_string_date_to_int(text);
  }
}

}  // namespace
