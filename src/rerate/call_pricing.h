/// How one call is priced: which stored rate applies to it, which of that rate's prices, and what
/// the call costs. Pure: no connection, clock, file or log. Results say by what rule they came
/// about: qvn_price_check explains a price by them.
///
/// Money is held in single precision; where a step is done in double precision its comment says so.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/qvn_function_ref.h"
#include "rate/qvn_rate_table.h"

/// The price of a call that has none.
inline constexpr float kNoRate = -1.0F;

/// Rate types as they are written to a call record. A local call is marked in the record itself.
inline constexpr int32_t kRateTypeInter = 1;
inline constexpr int32_t kRateTypeIntra = 2;
inline constexpr int32_t kRateTypePlain = 3;
inline constexpr int32_t kRateTypeLocal = 5;

/// What the rating uses of a rate table's settings. A length of 0 is no limit.
struct jurisdiction_settings {
  std::string prefix;             ///< of calling numbers to be looked at; empty: any
  uint8_t prefix_min_length = 0;  ///< of calling numbers with the prefix
  uint8_t prefix_max_length = 0;
  uint8_t noprefix_min_length = 0;  ///< of those without
  uint8_t noprefix_max_length = 0;
};

/// What stands for all calls of a trunk and day.
struct pricing_terms {
  rp_hash_node* codes = nullptr;          ///< tree of the rate table's codes; null: no rates
  rp_hash_node* time_profiles = nullptr;  ///< tree of time profiles by id
  rp_hash_node* jurisdictions = nullptr;  ///< tree of prefixes of the rate table's country; null:
                                          ///< jurisdictions do not count
  jurisdiction_settings jurisdiction;
  bool local_rates = false;   ///< local rates apply to local calls
  uint8_t rate_decimal = 0;   ///< decimals of a cost
  uint8_t rate_rounding = 0;  ///< 0: any dropped digit rounds up; 2: one above 4; else cut
};

/// What a call record says about a call.
struct call_facts {
  std::string_view billed_number;
  std::string_view ani;      ///< calling number
  int64_t start_second = 0;  ///< since the epoch
  int64_t duration = 0;      ///< seconds
  int32_t rate_type = kRateTypePlain;
};

/// Whether a rate of a code that fits applies to a call, or why it does not.
enum class rate_verdict : uint8_t { applies, not_begun, ended, no_profile, outside_profile };

/// Which of a rate's prices counts, and why.
enum class price_rule : uint8_t {
  none,          ///< there is no rate
  ani_length,    ///< the calling number does not show its state
  local,         ///< a local call
  same_state,    ///< both numbers lie in one jurisdiction
  other_states,  ///< in two
  plain,         ///< nothing of this
};

/// A price for one `seconds` unit of the record, or kNoRate, and the rate type to be written.
struct rate_choice {
  float rate = kNoRate;
  int32_t rate_type = kRateTypePlain;
  price_rule rule = price_rule::none;
};

/// What the billed time is.
enum class time_rule : uint8_t { nothing, minimum, increments };

struct call_charge {
  uint16_t bill_time = 0;  ///< seconds
  time_rule time = time_rule::nothing;
  bool within_grace = false;  ///< shorter than the grace time: free
  float cost = 0.0F;
  float full_cost = 0.0F;  ///< before it was rounded to the terms' decimals
  float minutes = 0.0F;    ///< bill time in units of the record's `seconds`
};

/// What becomes of a call.
struct call_price {
  const rate_node* record = nullptr;  ///< null: no rate applies
  rate_choice choice;
  bool is_priced = false;  ///< false without a rate, without a price, and with a price of 0
  call_charge charge;
};

/// Whether a rate with this profile applies to a call that starts at that second. Both ends of the
/// hours are included. Of hours that run over midnight only the first counts, and the last up to
/// its end.
[[nodiscard]] bool time_profile_applies(const time_profile_node& profile, int64_t start_second);

/// Whether a rate of such dates is in force at that second; an end of 0 is open.
[[nodiscard]] rate_verdict judge_dates(int64_t effective_date, int64_t end_date, int64_t time);

/// Whether a rate applies to a call at that second: by its dates, then by its time profile.
[[nodiscard]] rate_verdict judge_rate(const pricing_terms& terms, const rate_node& rate,
                                      int64_t time);

/// The rate for a call at that second to a number of which `longest` is the longest code, as the
/// search found it: the oldest applicable record of the longest code that has one. Null when there
/// is none.
[[nodiscard]] const rate_node* choose_record(const pricing_terms& terms,
                                             const rp_hash_node* longest, int64_t start_second);

/// The same, and `watch` is called with every record that is looked at, in their order: all but the
/// last are passed over.
[[nodiscard]] const rate_node* choose_record(
    const pricing_terms& terms, const rp_hash_node* longest, int64_t start_second,
    qvn_function_ref<void(const rate_node&, rate_verdict)> watch);

/// Has the code's first rate and the texts that follow it brought into the cache all at once: among
/// hundreds of thousands of rates each of its cache lines would be waited for, one after the other.
void fetch_rate(const rp_hash_node& code);

/// How long calling numbers must be to show their jurisdiction.
struct ani_bounds {
  bool with_prefix = false;  ///< the number begins with the rate table's prefix
  uint8_t shortest = 0;      ///< 0, as the next: there are no bounds
  uint8_t longest = 0;
};
[[nodiscard]] ani_bounds bounds_of(const jurisdiction_settings& settings, std::string_view ani);

/// The prefixes by which the jurisdictions of a call's two numbers are found; null where there is
/// none, both where jurisdictions do not count.
struct call_states {
  const rp_hash_node* caller = nullptr;
  const rp_hash_node* called = nullptr;
};
[[nodiscard]] call_states states_of(const pricing_terms& terms, const call_facts& call);

/// Which price of the record counts for the call.
[[nodiscard]] rate_choice choose_rate(const pricing_terms& terms, const rate_node& record,
                                      const call_facts& call);

/// What a rate's 16-bit `seconds` and `interval` count as.
struct charge_units {
  uint8_t seconds;
  uint8_t interval;
};
[[nodiscard]] charge_units units_of(const rate_node& record);

/// What a call of `duration` seconds costs at `rate`. A `seconds` or `interval` whose low 8 bits
/// are 0 makes it free.
[[nodiscard]] call_charge charge_call(const pricing_terms& terms, const rate_node& record,
                                      float rate, int64_t duration);

/// What a call with this record, which may be null, is written with.
[[nodiscard]] call_price price_call(const pricing_terms& terms, const rate_node* record,
                                    const call_facts& call);

/// The cost with no more than the terms' decimals. Without decimals nothing is rounded up.
[[nodiscard]] float round_cost(float cost, uint8_t decimals, uint8_t rounding);
