#include "rerate/call_pricing.h"

#include <array>
#include <charconv>
#include <cstring>
#include <optional>
#include <tuple>

#include "base/qvn_prefetch.h"
#include "base/qvn_text.h"
#include "base/qvn_time.h"
#include "rerate/call_money.h"

namespace {

constexpr int32_t kHoursPerDay = 24;
constexpr int32_t kDaysAWeek = 7;

/// A moment in UTC.
struct clock_reading {
  int32_t weekday;  ///< 1 Monday to 7 Sunday
  int32_t hour;
  int32_t minute;
  int32_t second;
};

clock_reading utc_clock(int64_t time) {
  constexpr int64_t kEpochWeekday = 4;  // a Thursday
  int64_t day = time / kSecondsPerDay;
  int64_t rest = time % kSecondsPerDay;
  if (rest < 0) {
    rest += kSecondsPerDay;
    --day;
  }
  const int64_t weekday = ((day + kEpochWeekday - 1) % kDaysAWeek + kDaysAWeek) % kDaysAWeek + 1;
  return {static_cast<int32_t>(weekday), static_cast<int32_t>(rest / 3600),
          static_cast<int32_t>(rest / 60 % 60), static_cast<int32_t>(rest % 60)};
}

/// Moves hour and weekday into a time zone, whole hours from UTC.
clock_reading shifted(clock_reading clock, int32_t zone) {
  clock.hour += zone;
  if (clock.hour >= kHoursPerDay) {
    clock.hour -= kHoursPerDay;
    clock.weekday = clock.weekday == kDaysAWeek ? 1 : clock.weekday + 1;
  } else if (clock.hour < 0) {
    clock.hour += kHoursPerDay;
    clock.weekday = clock.weekday == 1 ? kDaysAWeek : clock.weekday - 1;
  }
  return clock;
}

bool within_weekdays(const time_profile_node& profile, const clock_reading& clock) {
  return clock.weekday >= profile.start_week && clock.weekday <= profile.end_week;
}

bool within_hours(const time_profile_node& profile, const clock_reading& clock) {
  const auto minute = std::tie(clock.minute, clock.second);
  const bool before_end = minute <= std::tie(profile.end_minute, profile.end_second);
  if (clock.hour > profile.start_hour) {
    return clock.hour < profile.end_hour || (clock.hour == profile.end_hour && before_end);
  }
  if (clock.hour == profile.start_hour) {
    return minute >= std::tie(profile.start_minute, profile.start_second) &&
           (clock.hour != profile.end_hour || before_end);
  }
  return clock.hour == profile.end_hour && before_end;
}

rate_verdict judge_profile(const pricing_terms& terms, const char* profile_id, int64_t time) {
  if (!profile_id) {
    return rate_verdict::applies;
  }
  const rp_hash_node* const node = rp_hash_match_all(&terms.time_profiles, profile_id);
  if (!node || !node->items) {
    return rate_verdict::no_profile;
  }
  return time_profile_applies(*static_cast<const time_profile_node*>(node->items), time)
             ? rate_verdict::applies
             : rate_verdict::outside_profile;
}

template <class Watch>
const rate_node* first_applicable(const pricing_terms& terms, const rp_hash_node& code,
                                  int64_t time, const Watch& watch) {
  const auto* rate = static_cast<const rate_node*>(code.items);
  for (uint64_t left = rate ? code.item_count : 0; left > 0; --left, rate = rate->next) {
    const rate_verdict verdict = judge_rate(terms, *rate, time);
    watch(*rate, verdict);
    if (verdict == rate_verdict::applies) {
      return rate;
    }
  }
  return nullptr;
}

template <class Watch>
const rate_node* walk_codes(const pricing_terms& terms, const rp_hash_node* longest, int64_t time,
                            const Watch& watch) {
  for (const rp_hash_node* code = longest; code; code = code->parent) {
    // A rate without a code is no default for other codes.
    if (code->terminal != 1 || code->ch == 0) {
      continue;
    }
    if (const rate_node* const rate = first_applicable(terms, *code, time, watch)) {
      return rate;
    }
  }
  return nullptr;
}

/// Whether the calling number is too short or too long to give its jurisdiction.
bool ani_out_of_bounds(const jurisdiction_settings& settings, std::string_view ani) {
  const ani_bounds bounds = bounds_of(settings, ani);
  return bounds.shortest != 0 && bounds.longest != 0 &&
         (ani.size() < bounds.shortest || ani.size() > bounds.longest);
}

/// The prefix of a number's jurisdiction, with the country's "1" in front; null when it is in none.
const rp_hash_node* state_of(const pricing_terms& terms, std::string_view number) {
  constexpr char kCountryPrefix = '1';
  // No prefix is longer than the tree is deep.
  char key[258] = {kCountryPrefix};
  const std::size_t skip = number.starts_with(kCountryPrefix) ? 0 : 1;
  const std::size_t length = number.copy(key + skip, sizeof key - 2);
  key[skip + length] = '\0';
  const rp_hash_node* const node = rp_hash_search(&terms.jurisdictions, key);
  return node && node->items ? node : nullptr;
}

bool is_same_state(const call_states& states) {
  const auto id = [](const rp_hash_node* prefix) {
    return qvn_or_empty(
        static_cast<const jurisdiction_prefix_node*>(prefix->items)->jurisdiction_id);
  };
  return std::strcmp(id(states.caller), id(states.called)) == 0;
}

/// A 16-bit setting of a rate counts by its low 8 bits.
uint8_t low_byte(uint16_t value) {
  return static_cast<uint8_t>(value & 0xFFU);
}

/// Duration rounded up to the billing increment; a shorter call than the minimum is billed as that
/// minimum, which need not be a multiple of the increment.
call_charge billed_time(int64_t duration, uint16_t min_time, uint8_t interval) {
  if (duration <= min_time) {
    return {.bill_time = min_time, .time = time_rule::minimum};
  }
  const int64_t increments = duration / interval + (duration % interval != 0 ? 1 : 0);
  // The billed time has 16 bits, though the product has more.
  return {.bill_time = static_cast<uint16_t>(static_cast<uint64_t>(increments) * interval),
          .time = time_rule::increments};
}

constexpr uint8_t kRoundUp = 0;
constexpr uint8_t kRoundHalfUp = 2;

/// A cost that is negative, 2^32 or more, or no number, rounded in its text.
float round_unusual_cost(float cost, uint8_t decimals, uint8_t rounding, double step) {
  std::array<char, kMoneyTextSize> text;
  const std::string_view written = qvn_money_text(text, cost);
  const std::size_t point = written.find('.');
  if (point == std::string_view::npos) {
    return cost;  // no number
  }
  const std::string_view dropped = written.substr(point + 1 + decimals);
  const bool up =
      decimals > 0 && ((rounding == kRoundUp && dropped.find_first_not_of('0') != dropped.npos) ||
                       (rounding == kRoundHalfUp && dropped.front() > '4'));
  const std::string_view kept = written.substr(0, point + 1 + decimals);
  double rounded = 0.0;
  (void)std::from_chars(kept.data(), kept.data() + kept.size(), rounded);
  return static_cast<float>(up ? rounded + step : rounded);
}

}  // namespace

bool time_profile_applies(const time_profile_node& profile, int64_t start_second) {
  constexpr uint16_t kWeekly = 1;
  constexpr uint16_t kDaily = 2;
  if (profile.type != kWeekly && profile.type != kDaily) {
    return true;
  }
  const clock_reading clock = shifted(utc_clock(start_second), profile.time_zone);
  return (profile.type == kDaily || within_weekdays(profile, clock)) &&
         within_hours(profile, clock);
}

rate_verdict judge_dates(int64_t effective_date, int64_t end_date, int64_t time) {
  if (effective_date > time) {
    return rate_verdict::not_begun;
  }
  return end_date == 0 || end_date >= time ? rate_verdict::applies : rate_verdict::ended;
}

rate_verdict judge_rate(const pricing_terms& terms, const rate_node& rate, int64_t time) {
  const rate_verdict by_dates = judge_dates(rate.effective_date, rate.end_date, time);
  return by_dates == rate_verdict::applies ? judge_profile(terms, rate.time_profile_id, time)
                                           : by_dates;
}

const rate_node* choose_record(const pricing_terms& terms, const rp_hash_node* longest,
                               int64_t start_second) {
  return walk_codes(terms, longest, start_second, [](const rate_node&, rate_verdict) {});
}

const rate_node* choose_record(const pricing_terms& terms, const rp_hash_node* longest,
                               int64_t start_second,
                               qvn_function_ref<void(const rate_node&, rate_verdict)> watch) {
  return walk_codes(terms, longest, start_second, watch);
}

void fetch_rate(const rp_hash_node& code) {
  constexpr std::size_t kLine = 64;
  constexpr std::size_t kOrdinaryTexts = 64;
  const auto* const begin = static_cast<const char*>(code.items);
  for (std::size_t offset = 0; begin && offset < sizeof(rate_node) + kOrdinaryTexts;
       offset += kLine) {
    qvn_prefetch(begin + offset);
  }
}

ani_bounds bounds_of(const jurisdiction_settings& settings, std::string_view ani) {
  const std::string_view prefix = settings.prefix;
  if (prefix.empty()) {
    return {};
  }
  if (ani.starts_with(prefix)) {
    return {true, settings.prefix_min_length, settings.prefix_max_length};
  }
  return {false, settings.noprefix_min_length, settings.noprefix_max_length};
}

call_states states_of(const pricing_terms& terms, const call_facts& call) {
  if (!terms.jurisdictions) {
    return {};
  }
  return {state_of(terms, call.ani), state_of(terms, call.billed_number)};
}

rate_choice choose_rate(const pricing_terms& terms, const rate_node& record,
                        const call_facts& call) {
  if (ani_out_of_bounds(terms.jurisdiction, call.ani)) {
    return {record.rate, kRateTypePlain, price_rule::ani_length};
  }
  if (terms.local_rates && call.rate_type == kRateTypeLocal && record.local_rate >= 0.0F) {
    return {record.local_rate, kRateTypeLocal, price_rule::local};
  }
  const call_states states = states_of(terms, call);
  if (!states.caller || !states.called) {
    return {record.rate, kRateTypePlain, price_rule::plain};
  }
  return is_same_state(states)
             ? rate_choice{record.intra_rate, kRateTypeIntra, price_rule::same_state}
             : rate_choice{record.inter_rate, kRateTypeInter, price_rule::other_states};
}

charge_units units_of(const rate_node& record) {
  return {low_byte(record.seconds), low_byte(record.interval)};
}

call_charge charge_call(const pricing_terms& terms, const rate_node& record, float rate,
                        int64_t duration) {
  const auto [seconds, interval] = units_of(record);
  if (duration == 0 || seconds == 0 || interval == 0) {
    return {};
  }
  call_charge charge = billed_time(duration, record.min_time, interval);
  const double minutes = static_cast<double>(charge.bill_time) / seconds;
  charge.minutes = static_cast<float>(minutes);  // single precision, as all that is written
  charge.within_grace = duration < record.grace_time;
  if (!charge.within_grace && rate >= BIILING_EPSINON) {
    charge.full_cost = static_cast<float>(static_cast<double>(record.setup_fee) +
                                          minutes * static_cast<double>(rate));
    charge.cost = round_cost(charge.full_cost, terms.rate_decimal, terms.rate_rounding);
  }
  return charge;
}

call_price price_call(const pricing_terms& terms, const rate_node* record, const call_facts& call) {
  call_price price;
  if (!record) {
    return price;
  }
  price.record = record;
  price.choice = choose_rate(terms, *record, call);
  price.is_priced = price.choice.rate >= BIILING_EPSINON;
  if (price.is_priced) {
    price.charge = charge_call(terms, *record, price.choice.rate, call.duration);
  }
  return price;
}

float round_cost(float cost, uint8_t decimals, uint8_t rounding) {
  static constexpr std::array kStep = {1.0, 1e-1, 1e-2, 1e-3, 1e-4, 1e-5};
  static constexpr std::array<uint32_t, 6> kPowerOfTen = {1, 10, 100, 1'000, 10'000, 100'000};
  if (decimals >= kStep.size()) {
    return cost;  // no digit to drop: a cost is written with six decimals
  }
  const std::optional<uint64_t> millionths = call_millionths(cost);
  if (!millionths) {
    return round_unusual_cost(cost, decimals, rounding, kStep[decimals]);
  }
  const uint32_t first_dropped = kPowerOfTen[kStep.size() - 1 - decimals];
  const uint64_t dropped = *millionths % (uint64_t{first_dropped} * 10);
  const uint64_t kept = *millionths / (uint64_t{first_dropped} * 10);
  const bool up = decimals > 0 && ((rounding == kRoundUp && dropped != 0) ||
                                   (rounding == kRoundHalfUp && dropped / first_dropped > 4));
  // Of two whole numbers that a double holds: the double nearest to the kept decimals.
  const double rounded = static_cast<double>(kept) / kPowerOfTen[decimals];
  return static_cast<float>(up ? rounded + kStep[decimals] : rounded);
}
