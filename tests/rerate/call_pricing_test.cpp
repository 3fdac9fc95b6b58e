#include "rerate/call_pricing.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "base/qvn_text.h"
#include "rerate/pricing_world.h"

namespace {

constexpr int64_t kSunday = 1772323200;  // 2026-03-01 00:00:00 UTC

int64_t at(int day, int hour, int minute = 0, int second = 0) {
  return kSunday + ((int64_t{day} * 24 + hour) * 60 + minute) * 60 + second;
}

// --- time profiles -----------------------------------------------------------------------------

struct profile_case {
  const char* name;
  int type, zone, start_week, end_week;
  int start[3], end[3];
  int64_t time;
  bool applies;
};

TEST(time_profile, applies_within_its_hours_and_weekdays) {
  const profile_case cases[] = {
      {"other_types_always", 0, 0, 3, 3, {9, 0, 0}, {9, 0, 0}, at(0, 5), true},
      {"sunday_is_7", 1, 0, 6, 7, {0, 0, 0}, {23, 59, 59}, at(0, 12), true},
      {"sunday_is_not_0", 1, 0, 0, 6, {0, 0, 0}, {23, 59, 59}, at(0, 12), false},
      {"monday_is_1", 1, 0, 1, 1, {0, 0, 0}, {23, 59, 59}, at(1, 12), true},
      {"weekdays_do_not_wrap", 1, 0, 6, 1, {0, 0, 0}, {23, 59, 59}, at(0, 12), false},
      {"east_makes_monday", 1, 2, 1, 1, {0, 0, 0}, {1, 0, 0}, at(0, 22, 30), true},
      {"east_same_day", 1, 2, 7, 7, {23, 0, 0}, {23, 59, 59}, at(0, 21, 59), true},
      {"west_makes_saturday", 1, -5, 6, 6, {19, 0, 0}, {19, 1, 0}, at(0, 0), true},
      {"west_hour_0_same_day", 1, -5, 7, 7, {0, 0, 0}, {0, 1, 0}, at(0, 5), true},
      {"west_from_monday", 1, -1, 7, 7, {23, 0, 0}, {23, 30, 0}, at(1, 0, 5), true},
      {"daily_ignores_weekdays", 2, 0, 3, 3, {9, 0, 0}, {17, 0, 0}, at(0, 12), true},
      {"start_included", 2, 0, 0, 0, {9, 30, 15}, {17, 0, 0}, at(0, 9, 30, 15), true},
      {"before_start", 2, 0, 0, 0, {9, 30, 15}, {17, 0, 0}, at(0, 9, 30, 14), false},
      {"later_minute_of_start_hour", 2, 0, 0, 0, {9, 30, 15}, {17, 0, 0}, at(0, 9, 31, 0), true},
      {"end_included", 2, 0, 0, 0, {9, 0, 0}, {17, 20, 30}, at(0, 17, 20, 30), true},
      {"after_end", 2, 0, 0, 0, {9, 0, 0}, {17, 20, 30}, at(0, 17, 20, 31), false},
      {"after_end_hour", 2, 0, 0, 0, {9, 0, 0}, {17, 20, 30}, at(0, 18), false},
      {"one_hour_between", 2, 0, 0, 0, {9, 10, 0}, {9, 20, 0}, at(0, 9, 20, 0), true},
      {"one_hour_after", 2, 0, 0, 0, {9, 10, 0}, {9, 20, 0}, at(0, 9, 20, 1), false},
      {"no_wrap_evening", 2, 0, 0, 0, {22, 0, 0}, {6, 0, 0}, at(0, 23), false},
      {"no_wrap_morning", 2, 0, 0, 0, {22, 0, 0}, {6, 0, 0}, at(0, 5), false},
      // What is left of a range over midnight: the first part of its last hour.
      {"no_wrap_end_hour", 2, 0, 0, 0, {22, 0, 0}, {6, 30, 0}, at(0, 6, 10), true},
      {"before_1970", 1, 0, 3, 3, {23, 59, 59}, {23, 59, 59}, -1, true},
  };
  for (const profile_case& c : cases) {
    SCOPED_TRACE(c.name);
    time_profile_node profile{};
    profile.type = static_cast<uint16_t>(c.type);
    profile.time_zone = c.zone;
    profile.start_week = static_cast<uint16_t>(c.start_week);
    profile.end_week = static_cast<uint16_t>(c.end_week);
    profile.start_hour = c.start[0];
    profile.start_minute = c.start[1];
    profile.start_second = c.start[2];
    profile.end_hour = c.end[0];
    profile.end_minute = c.end[1];
    profile.end_second = c.end[2];
    EXPECT_EQ(time_profile_applies(profile, c.time), c.applies);
  }
}

// --- choice of the record ------------------------------------------------------------------------

std::string chosen(const pricing_world& world, const char* number, int64_t time) {
  const rate_node* const rate = choose_record(world.terms, number, time);
  return rate ? rate->rate_id : "none";
}

TEST(choose_record_test, longest_code_counts_then_shorter_ones) {
  pricing_world world;
  world.add_rate("44", "uk", 1.0F);
  world.add_rate("4420", "london", 1.0F, 1000);
  world.add_rate("442079", "never", 1.0F).end_date = 5;
  EXPECT_EQ(chosen(world, "442079460000", 2000), "london");
  EXPECT_EQ(chosen(world, "442079460000", 999), "uk");
  EXPECT_EQ(chosen(world, "44", 999), "uk");
  EXPECT_EQ(chosen(world, "4", 999), "none");
  EXPECT_EQ(chosen(world, "", 999), "none");
}

TEST(choose_record_test, oldest_applicable_rate_wins_with_both_ends_included) {
  pricing_world world;
  world.add_rate("44", "old", 1.0F, 100).end_date = 200;
  world.add_rate("44", "new", 1.0F, 150);
  EXPECT_EQ(chosen(world, "44", 99), "none");
  EXPECT_EQ(chosen(world, "44", 100), "old");
  EXPECT_EQ(chosen(world, "44", 200), "old");
  EXPECT_EQ(chosen(world, "44", 201), "new");
}

TEST(choose_record_test, rate_without_a_code_is_never_the_default) {
  pricing_world world;
  world.add_rate("", "empty", 1.0F);
  EXPECT_EQ(chosen(world, "44", 0), "none");
  EXPECT_EQ(chosen(world, "", 0), "none");
}

TEST(choose_record_test, profile_that_does_not_apply_or_exist_passes_the_rate_over) {
  pricing_world world;
  world.add_rate("44", "always", 1.0F, 10);
  world.add_rate("44", "night", 1.0F, 5, "n");
  world.add_rate("44", "unknown", 1.0F, 0, "gone");
  time_profile_node& night = world.add_time_profile("n");
  night.type = 2;
  night.end_hour = 5;
  EXPECT_EQ(chosen(world, "44", at(0, 3)), "night");
  EXPECT_EQ(chosen(world, "44", at(0, 12)), "always");
}

/// The walk up the tree against the plain rule: of all rates whose code is a prefix of the number
/// and that apply, the one of the longest code, of these the oldest.
TEST(choose_record_test, agrees_with_a_scan_over_all_rates) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto below = [&](unsigned limit) { return static_cast<int64_t>(random() % limit); };
  const auto number = [&](int64_t length) {
    std::string text;
    for (; length > 0; --length) {
      text += static_cast<char>('0' + below(3));
    }
    return text;
  };
  for (int round = 0; round < 50; ++round) {
    pricing_world world;
    std::vector<const rate_node*> all;
    world.add_time_profile("day").type = 2;
    for (int i = 0; i < 60; ++i) {
      const char* const profiles[] = {"", "", "day", "gone"};
      // Dates differ, so that there is one oldest.
      rate_node& rate = world.add_rate(number(1 + below(5)), std::to_string(i), 1.0F,
                                       int64_t{100} * i + below(100), profiles[below(4)]);
      rate.end_date = below(2) ? 0 : rate.effective_date + below(3000);
      all.push_back(&rate);
    }
    std::ranges::shuffle(all, random);
    for (int call = 0; call < 200; ++call) {
      const std::string dialled = number(3 + below(5));
      const int64_t time = below(2) ? below(6000) : 86400 * below(3);
      const rate_node* best = nullptr;
      for (const rate_node* rate : all) {
        const std::string code = rate->code;
        const std::string profile = rate->time_profile_id ? rate->time_profile_id : "";
        // The profile "day" lasts from 00:00:00 to 00:00:00.
        if (!dialled.starts_with(code) || rate->effective_date > time ||
            (rate->end_date != 0 && rate->end_date < time) || profile == "gone" ||
            (profile == "day" && time % 86400 != 0)) {
          continue;
        }
        if (!best || code.size() > std::string(best->code).size() ||
            (code == best->code && rate->effective_date < best->effective_date)) {
          best = rate;
        }
      }
      ASSERT_EQ(choose_record(world.terms, dialled.c_str(), time), best) << dialled << " " << time;
    }
  }
}

// --- choice of the rate --------------------------------------------------------------------------

struct rate_case {
  const char* ani;
  const char* number;
  int32_t call_type;
  float rate;
  int32_t written_type;
};

class choose_rate_test : public testing::Test {
 protected:
  choose_rate_test() : record(world.add_rate("1", "id", 1.0F)) {
    record.inter_rate = 2.0F;
    record.intra_rate = 3.0F;
    record.local_rate = 4.0F;
    world.add_jurisdiction("1201", "5", "NJ");
    world.add_jurisdiction("1212", "7", "NY");
    world.add_jurisdiction("1212", "6", "first by id");
    world.add_jurisdiction("1646", "8", "first by id");
  }

  void expect(const std::vector<rate_case>& cases) {
    for (const rate_case& c : cases) {
      SCOPED_TRACE(std::string(c.ani) + " to " + c.number);
      const rate_choice choice = choose_rate(world.terms, record,
                                             {.billed_number = c.number,
                                              .ani = c.ani,
                                              .start_second = 0,
                                              .duration = 1,
                                              .rate_type = c.call_type});
      EXPECT_EQ(choice.rate, c.rate);
      EXPECT_EQ(choice.rate_type, c.written_type);
    }
  }

  pricing_world world;
  rate_node& record;
};

TEST_F(choose_rate_test, states_of_both_numbers_choose_between_inter_and_intra) {
  expect({{"12015550100", "12125550100", 3, 2.0F, 1},
          {"2015550100", "2125550100", 3, 2.0F, 1},   // "1" is put in front
          {"2125550100", "16465550100", 3, 3.0F, 2},  // two prefixes of one state
          {"2125550100", "13105550100", 3, 1.0F, 3},  // unknown state
          {"", "12125550100", 3, 1.0F, 3},
          {std::string(600, '9').c_str(), "12125550100", 3, 1.0F, 3}});
  record.inter_rate = kNoRate;  // no falling back to the plain rate
  expect({{"12015550100", "12125550100", 3, kNoRate, 1}});
}

TEST_F(choose_rate_test, default_prefix_counts_as_found) {
  world.add_jurisdiction("", "9", "elsewhere");
  expect({{"13105550100", "14155550100", 3, 3.0F, 2}, {"13105550100", "12125550100", 3, 2.0F, 1}});
}

TEST_F(choose_rate_test, local_rate_goes_before_jurisdictions_when_on_and_there) {
  expect({{"12015550100", "12125550100", 5, 2.0F, 1}});
  world.terms.local_rates = true;
  expect({{"12015550100", "12125550100", 5, 4.0F, 5}, {"12015550100", "12125550100", 3, 2.0F, 1}});
  record.local_rate = kNoRate;
  expect({{"12015550100", "12125550100", 5, 2.0F, 1}});
}

TEST_F(choose_rate_test, ani_of_wrong_length_takes_the_plain_rate) {
  world.terms.local_rates = true;
  world.terms.jurisdiction = {.prefix = "12",
                              .prefix_min_length = 10,
                              .prefix_max_length = 11,
                              .noprefix_min_length = 5,
                              .noprefix_max_length = 0};
  expect({{"12015550100", "12125550100", 3, 2.0F, 1},
          {"120155501001", "12125550100", 3, 1.0F, 3},
          {"120155501001", "12125550100", 5, 1.0F, 3},  // before local rates
          {"120155501", "12125550100", 3, 1.0F, 3},
          {"2015", "12125550100", 3, 2.0F, 1}});  // without the prefix, and one bound alone is none
  world.terms.jurisdiction.noprefix_max_length = 10;
  expect({{"2015", "12125550100", 5, 1.0F, 3}, {"20155", "12125550100", 5, 4.0F, 5}});
}

// --- billing -------------------------------------------------------------------------------------

struct charge_case {
  const char* name;
  int64_t duration;
  int min_time, grace_time, interval, seconds;
  float rate, setup_fee;
  unsigned bill_time;
  float cost, minutes;
};

TEST(charge_call_test, follows_the_rates_billing_terms) {
  const charge_case cases[] = {
      {"minimum_as_it_is", 7, 30, 0, 7, 60, 1.0F, 0.0F, 30, 0.5F, 0.5F},
      {"at_the_minimum", 30, 30, 0, 7, 60, 1.0F, 0.0F, 30, 0.5F, 0.5F},
      {"rounded_up", 31, 30, 0, 6, 60, 1.0F, 0.0F, 36, 0.6F, 0.6F},
      {"whole_increments", 36, 30, 0, 6, 60, 1.0F, 0.0F, 36, 0.6F, 0.6F},
      {"setup_fee_on_top", 60, 0, 0, 60, 60, 0.25F, 0.5F, 60, 0.75F, 1.0F},
      {"grace_keeps_the_minutes", 9, 0, 10, 6, 60, 1.0F, 0.5F, 12, 0.0F, 0.2F},
      {"at_the_grace_time", 10, 0, 10, 6, 60, 1.0F, 0.0F, 12, 0.2F, 0.2F},
      {"no_duration", 0, 30, 0, 6, 60, 1.0F, 0.5F, 0, 0.0F, 0.0F},
      {"seconds_256_is_0", 60, 0, 0, 6, 256, 1.0F, 0.5F, 0, 0.0F, 0.0F},
      {"interval_0", 60, 0, 0, 0, 60, 1.0F, 0.5F, 0, 0.0F, 0.0F},
      {"interval_300_is_44", 45, 0, 0, 300, 60, 1.5F, 0.0F, 88, 2.2F, 88.0F / 60},
      {"seconds_316_is_60", 60, 0, 0, 60, 316, 1.0F, 0.0F, 60, 1.0F, 1.0F},
      {"bill_time_has_16_bits", 65537, 0, 0, 60, 60, 1.0F, 0.0F, 44, 44.0F / 60, 44.0F / 60},
      {"bill_time_is_unsigned", 40000, 0, 0, 1, 60, 0.0F, 0.0F, 40000, 0.0F, 40000.0F / 60},
      {"least_rate_is_charged", 60, 0, 0, 60, 60, 1e-6F, 0.0F, 60, 1e-6F, 1.0F},
      {"longest_duration", INT64_MAX, 0, 0, 255, 60, 0.0F, 0.0F, 127, 0.0F, 127 / 60.0F},
  };
  for (const charge_case& c : cases) {
    SCOPED_TRACE(c.name);
    rate_node rate{};
    rate.min_time = static_cast<uint16_t>(c.min_time);
    rate.grace_time = static_cast<uint16_t>(c.grace_time);
    rate.interval = static_cast<uint16_t>(c.interval);
    rate.seconds = static_cast<uint16_t>(c.seconds);
    rate.setup_fee = c.setup_fee;
    pricing_terms terms;
    terms.rate_decimal = 6;
    const call_charge charge = charge_call(terms, rate, c.rate, c.duration);
    EXPECT_EQ(charge.bill_time, c.bill_time);
    EXPECT_EQ(charge.cost, c.cost);
    EXPECT_EQ(charge.minutes, c.minutes);
  }
}

struct rounding_case {
  float cost;
  int decimals;
  const char* up;       ///< rounding 0
  const char* cut;      ///< rounding 1
  const char* half_up;  ///< rounding 2
};

TEST(round_cost_test, drops_digits_as_the_trunk_says) {
  const rounding_case cases[] = {
      {0.1234561F, 4, "0.123500", "0.123400", "0.123500"},
      {0.12344F, 4, "0.123500", "0.123400", "0.123400"},
      {0.1234F, 4, "0.123400", "0.123400", "0.123400"},
      {0.0F, 4, "0.000000", "0.000000", "0.000000"},
      {0.99995F, 3, "1.000000", "0.999000", "1.000000"},
      {12.5F, 0, "12.000000", "12.000000", "12.000000"},  // nothing is rounded up to integers
      {0.000001F, 5, "0.000010", "0.000000", "0.000000"},
      {1.2345678F, 6, "1.234568", "1.234568", "1.234568"},
      {1.2345678F, 200, "1.234568", "1.234568", "1.234568"},
      // Single precision holds 0.3 as 0.300000012: no digit of the six is dropped.
      {0.3F, 1, "0.300000", "0.300000", "0.300000"},
      // It holds no 4567.12 either: noise in the last digits rounds up.
      {4567.12F, 2, "4567.129883", "4567.120117", "4567.120117"},
      {-0.15F, 1, "0.000000", "-0.100000", "0.000000"},
  };
  for (const rounding_case& c : cases) {
    const char* const expected[] = {c.up, c.cut, c.half_up, c.cut};
    for (const int rounding : {0, 1, 2, 3}) {
      const float rounded =
          round_cost(c.cost, static_cast<uint8_t>(c.decimals), static_cast<uint8_t>(rounding));
      char text[kMoneyTextSize];
      EXPECT_EQ(qvn_money_text(text, rounded), expected[rounding])
          << c.cost << " to " << c.decimals << " by " << rounding;
    }
  }
}

}  // namespace
