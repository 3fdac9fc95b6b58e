#include <array>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>

#include "base/qvn_time.h"

namespace {

constexpr int64_t kMinute = 60;
constexpr int64_t kHour = 60 * kMinute;
constexpr int64_t kJune27 = 1466985600;  // 2016-06-27 00:00:00 UTC

/// Puts the process into a time zone for one test.
class TimeZone : public testing::Test {
 protected:
  static void use(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }
  void SetUp() override { use("UTC"); }
  void TearDown() override { use("UTC"); }
};

using DateText = TimeZone;
using ZoneOffset = TimeZone;

TEST(AddTime, MillisecondsCarryUpTo999999) {
  struct row {
    timeval start;
    uint32_t milliseconds;
    time_t seconds;
    suseconds_t microseconds;
  };
  for (const row& r :
       {row{{10, 0}, 0, 10, 0}, row{{10, 999'000}, 1, 11, 0}, row{{10, 999'999}, 1, 11, 999},
        row{{10, 500'000}, 999'999, 1010, 499'000}, row{{10, 500'000}, 1'000'000, 1010, 0},
        row{{10, 500'000}, 1'000'999, 1010, 0}}) {
    timeval time = r.start;
    qvn_add_gettimeofday(&time, r.milliseconds);
    EXPECT_EQ(time.tv_sec, r.seconds) << r.milliseconds;
    EXPECT_EQ(time.tv_usec, r.microseconds) << r.milliseconds;
  }
}

TEST(AddTime, MicrosecondsCarryOverTheWholeRange) {
  timeval time{10, 999'999};
  qvn_add_gettimeofday_us(&time, 1);
  EXPECT_EQ(time.tv_sec, 11);
  EXPECT_EQ(time.tv_usec, 0);
  qvn_add_gettimeofday_us(&time, std::numeric_limits<uint32_t>::max());
  EXPECT_EQ(time.tv_sec, 11 + 4294);
  EXPECT_EQ(time.tv_usec, 967'295);
}

std::chrono::steady_clock::duration time_of(void (*sleep)(uint32_t), uint32_t count) {
  const auto before = std::chrono::steady_clock::now();
  sleep(count);
  return std::chrono::steady_clock::now() - before;
}

TEST(Sleep, LastsAtLeastAsLongAsAsked) {
  using namespace std::chrono_literals;
  EXPECT_GE(time_of(qvn_usleep, 3000), 3ms);
  EXPECT_GE(time_of(qvn_msleep, 1003), 1003ms);
  EXPECT_GE(time_of(qvn_sleep, 1), 1s);
  EXPECT_GE(time_of(qvn_usleep, 1'000'000), 2s) << "whole seconds count twice";
}

TEST(Clock, CountsSinceTheEpoch) {
  const time_t before = time(nullptr);
  EXPECT_GE(qvn_longtime_usec() / 1'000'000, before);
  EXPECT_GE(qvn_longtime_msec() / 1000, before);
  EXPECT_LE(qvn_longtime_msec() / 1000, time(nullptr) + 1);
}

TEST(Clock, SundayIsWeekday7) {
  tm now{};
  ASSERT_EQ(qvn_gmtime_r(&now), &now);
  EXPECT_EQ(qvn_gmtime_r(nullptr), nullptr);
  const time_t days_since_thursday = timegm(&now) / 86400;
  tm again{};
  ASSERT_NE(qvn_gmtime_r(&again), nullptr);
  EXPECT_EQ(again.tm_wday, (days_since_thursday + 3) % 7 + 1);
}

TEST_F(ZoneOffset, IsInWholeHoursTowardZeroEastPositive) {
  struct row {
    const char* zone;
    int32_t hours;
  };
  // The last one is in summer time all the year.
  for (const row& r :
       {row{"UTC", 0}, row{"<+08>-8", 8}, row{"<-05>5", -5}, row{"<+0530>-5:30", 5},
        row{"<-0330>3:30", -3}, row{"<-0030>0:30", 0}, row{"AAA-1BBB-2,0/0,J365/25", 2}}) {
    use(r.zone);
    EXPECT_EQ(qvn_get_timezone(), r.hours) << r.zone;
  }
}

TEST(ClockText, NeedsBothColonsAndThreePartsWithinNineCharacters) {
  struct row {
    const char* text;
    int32_t result, hour, minute, second;
  };
  for (const row& r :
       {row{"12:34:56", 0, 12, 34, 56}, row{"1:2:3", 0, 1, 2, 3}, row{"99:99:999", 0, 99, 99, 999},
        row{"99:99:9999", 0, 99, 99, 999}, row{"-1: 2:x", 0, -1, 2, 0},
        row{"12345:7:8", 0, 12345, 7, 8}, row{"123456:7:8", -1, -7, -7, -7},
        row{"12:34", -1, -7, -7, -7}, row{"12:34:", -1, -7, -7, -7}, row{":1:2", -1, -7, -7, -7},
        row{"1::2", -1, -7, -7, -7}, row{"", -1, -7, -7, -7}, row{"12", -1, -7, -7, -7},
        row{nullptr, -1, -7, -7, -7}}) {
    int32_t hour = -7;
    int32_t minute = -7;
    int32_t second = -7;
    const std::string shown = r.text == nullptr ? "(absent)" : r.text;
    EXPECT_EQ(qvn_strtime(r.text, &hour, &minute, &second), r.result) << shown;
    EXPECT_EQ(hour, r.hour) << shown;
    EXPECT_EQ(minute, r.minute) << shown;
    EXPECT_EQ(second, r.second) << shown;
  }
}

TEST_F(DateText, IsWrittenInLocalTime) {
  use("<+08>-8");
  std::array<char, 20> out{};
  qvn_int_date_to_string(kJune27, out.data());
  EXPECT_STREQ(out.data(), "2016-06-27 08:00:00");
  qvn_int_date_to_string(-9 * kHour, out.data());
  EXPECT_STREQ(out.data(), "1969-12-31 23:00:00");
  qvn_int_date_to_string(kJune27, nullptr);
}

TEST_F(DateText, ATimeOutOfRangeWritesNothing) {
  std::array<char, 20> out{"kept"};
  qvn_int_date_to_string(std::numeric_limits<int64_t>::max(), out.data());
  EXPECT_STREQ(out.data(), "kept");
  EXPECT_EQ(qvn_utc_timestamp(std::numeric_limits<int64_t>::max()), "");
}

// Years of five and more digits need more room than the caller has.
TEST_F(DateText, AFarYearIsCutAt19Characters) {
  std::array<char, 22> out{};
  out.fill('#');
  qvn_int_date_to_string(67768036191676799, out.data());  // the last second of the largest year
  EXPECT_STREQ(out.data(), "2147485547-12-31 23");
  EXPECT_EQ(out[20], '#');
}

TEST_F(DateText, DatabaseTimesAreUtc) {
  use("<+08>-8");
  EXPECT_EQ(qvn_utc_timestamp(kJune27), "2016-06-27 00:00:00+00");
  EXPECT_EQ(qvn_utc_timestamp(0), "1970-01-01 00:00:00+00");
}

TEST_F(DateText, IsReadAsLocalTimeOrRefusedWith0) {
  use("<+08>-8");
  constexpr int64_t kMidnight = kJune27 - 8 * kHour;
  struct row {
    const char* text;
    int64_t time;
  };
  for (const row& r : {
           row{"2016-06-27", kMidnight},
           row{"2016-6-27", kMidnight},
           row{"2016-06-27 15:05:09", kMidnight + 15 * kHour + 5 * kMinute + 9},
           row{"2016-06-27 15:05:", kMidnight + 15 * kHour + 5 * kMinute},
           row{"2016-06-27 15:05",
               kMidnight + 15 * kHour},  // the hour alone without a second colon
           row{"2016-06-27 15::09", kMidnight + 15 * kHour},
           row{"2016-06-27 :30:00", kMidnight + 30 * kMinute},
           row{"2016-06-27 15", kMidnight},
           row{"2016-06-27 ", kMidnight},
           row{"2016-06-27 23:59:59", kMidnight + 24 * kHour - 1},
           row{"2016-06-27 15:05:09.123", kMidnight + 15 * kHour + 5 * kMinute + 9},
           row{"2016-05-58", kMidnight},  // normalised
           row{"2015-18-27", kMidnight},
           row{"2016-06-27x", kMidnight},
           row{"2016-06-00000000000027", 0},  // cut at 20 characters: day 0
           row{"2016-06-27 24:00:00", 0},
           row{"2016-06-27 -1:00:00", 0},
           row{"2016-06-27 15:60:00", 0},
           row{"2016-06-27 15:-1:00", 0},
           row{"2016-06-27 15:05:60", 0},
           row{"2016-06-27 15:05:-1", 0},
           row{"2016-00-01", 0},
           row{"2016-01-00", 0},
           row{"0-01-01", 0},
           row{"-2016-01-01", 0},
           row{"2016--01", 0},
           row{"2016-01-", 0},
           row{"2016-01- 01:00:00", 0},
           row{"2016-01", 0},
           row{"2016", 0},
           row{"x-y-z", 0},
           row{"", 0},
           row{nullptr, 0},
       }) {
    EXPECT_EQ(qvn_string_date_to_int(r.text), r.time) << (r.text == nullptr ? "(absent)" : r.text);
  }
}

// Numbers come from files unchecked; under the sanitizers an overflow would end the test.
TEST_F(DateText, HugeNumbersDoNotOverflow) {
  for (const char* text : {"2147483647-01-01", "1-2147483647-1", "1-1-2147483647", "4294967295-1-1",
                           "99999999999999-1-1"}) {
    (void)qvn_string_date_to_int(text);
  }
}

}  // namespace
