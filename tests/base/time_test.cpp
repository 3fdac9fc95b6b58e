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
class time_test : public testing::Test {
 protected:
  static void use(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }
  void TearDown() override { use("UTC"); }
};

TEST_F(time_test, milliseconds_carry_up_to_999999) {
  const std::pair<uint32_t, double> cases[] = {
      {0, 10.5}, {500, 11.0}, {999'999, 1010.499}, {1'000'999, 1010.0}};
  for (const auto& [milliseconds, seconds] : cases) {
    timeval time{10, 500'000};
    qvn_add_gettimeofday(&time, milliseconds);
    EXPECT_EQ(static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6, seconds);
  }
  timeval time{10, 999'999};
  qvn_add_gettimeofday_us(&time, std::numeric_limits<uint32_t>::max());
  EXPECT_EQ(time.tv_sec, 10 + 4295);
  EXPECT_EQ(time.tv_usec, 967'294);
}

TEST_F(time_test, sleeps_last_at_least_as_long_as_asked) {
  using namespace std::chrono_literals;
  const auto before = std::chrono::steady_clock::now();
  const auto elapsed = [before] { return std::chrono::steady_clock::now() - before; };
  qvn_msleep(103);
  EXPECT_GE(elapsed(), 103ms);
  qvn_sleep(1);
  EXPECT_GE(elapsed(), 1103ms);
  qvn_usleep(1'000'000);
  EXPECT_GE(elapsed(), 3103ms) << "whole seconds count twice";
}

TEST_F(time_test, clock_counts_since_the_epoch_and_sunday_is_weekday_7) {
  const time_t before = time(nullptr);
  EXPECT_GE(qvn_longtime_usec() / 1'000'000, before);
  EXPECT_LE(qvn_longtime_msec() / 1000, time(nullptr) + 1);
  tm now{};
  ASSERT_EQ(qvn_gmtime_r(&now), &now);
  EXPECT_EQ(qvn_gmtime_r(nullptr), nullptr);
  EXPECT_EQ(now.tm_wday, (before / 86400 + 3) % 7 + 1);
}

TEST_F(time_test, offset_is_in_whole_hours_toward_zero_east_positive) {
  const std::pair<const char*, int32_t> cases[] = {
      {"UTC", 0},
      {"<+0530>-5:30", 5},
      {"<-0330>3:30", -3},
      {"AAA-1BBB-2,0/0,J365/25", 2}};  // in summer time all the year
  for (const auto& [zone, hours] : cases) {
    use(zone);
    EXPECT_EQ(qvn_get_timezone(), hours) << zone;
  }
}

TEST_F(time_test, clock_texts_have_three_parts_within_nine_characters) {
  constexpr std::array kUntouched{-7, -7, -7};
  const std::pair<const char*, std::array<int32_t, 3>> cases[] = {
      {"08:30:15", {8, 30, 15}},   {"-1: 99:x", {-1, 99, 0}},
      {"1:2:3:4", {1, 2, 3}},      {"008:30:159", {8, 30, 15}},
      {"08:30", kUntouched},       {"08:30:", kUntouched},
      {":30:15", kUntouched},      {"08::15", kUntouched},
      {"0000008:1:1", kUntouched}, {"", kUntouched},
      {nullptr, kUntouched}};
  for (const auto& [text, expected] : cases) {
    std::array<int32_t, 3> read = kUntouched;
    EXPECT_EQ(qvn_strtime(text, &read[0], &read[1], &read[2]), expected == kUntouched ? -1 : 0);
    EXPECT_EQ(read, expected) << (text ? text : "(absent)");
  }
}

TEST_F(time_test, dates_are_written_in_local_time_and_for_the_database_in_utc) {
  use("<+08>-8");
  std::array<char, 22> out{"kept"};
  qvn_int_date_to_string(std::numeric_limits<int64_t>::max(), out.data());
  EXPECT_STREQ(out.data(), "kept") << "out of range";
  EXPECT_EQ(qvn_utc_timestamp(std::numeric_limits<int64_t>::max()), "");
  qvn_int_date_to_string(-9 * kHour, out.data());
  EXPECT_STREQ(out.data(), "1969-12-31 23:00:00");
  EXPECT_EQ(qvn_utc_timestamp(kJune27 - 1), "2016-06-26 23:59:59+00");
  // Years of five and more digits need more room than the caller has.
  use("UTC");
  out.fill('#');
  qvn_int_date_to_string(67768036191676799, out.data());  // the last second of the largest year
  EXPECT_STREQ(out.data(), "2147485547-12-31 23");
  EXPECT_EQ(out[20], '#');
}

// Days and months above their range are normalised. A time without its second colon is the hour
// alone. A text is cut at 20 characters.
TEST_F(time_test, dates_are_read_as_local_time_or_refused_with_0) {
  use("<+08>-8");
  constexpr int64_t kMidnight = kJune27 - 8 * kHour;
  const std::pair<const char*, int64_t> cases[] = {
      {"2016-6-27", kMidnight},
      {"2016-06-27 15:05:09.123", kMidnight + 15 * kHour + 309},
      {"2016-06-27 15:05", kMidnight + 15 * kHour},
      {"2016-06-27 :30:00", kMidnight + 1800},
      {"2016-06-27 15", kMidnight},
      {"2016-05-58", kMidnight},
      {"2015-18-27", kMidnight},
      {"2016-06-27x", kMidnight},
      {"2016-06-00000000000027", 0},
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
      {nullptr, 0}};
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(qvn_string_date_to_int(text), expected) << (text ? text : "(absent)");
  }
  // Numbers come from files unchecked; under the sanitizers an overflow would end the test.
  for (const char* text : {"2147483647-01-01", "1-2147483647-1", "1-1-2147483647"}) {
    (void)qvn_string_date_to_int(text);
  }
}

}  // namespace
