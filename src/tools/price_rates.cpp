#include "tools/price_rates.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <set>
#include <tuple>
#include <utility>

#include "base/qvn_text.h"
#include "base/qvn_time.h"
#include "rerate/call_money.h"
#include "tools/text_table.h"

namespace {

struct placed_row {
  std::size_t code_length;
  int64_t effective_date;
  std::vector<std::string> cells;
};

std::string clock_text(int32_t hour, int32_t minute, int32_t second) {
  return qvn_format("%02d:%02d:%02d", hour, minute, second);
}

/// What the rate's time profile covers, and what the clock showed in its time zone.
std::string outside_text(const pricing_terms& terms, const rate_node& rate, int64_t time) {
  constexpr int64_t kSecondsPerHour = 3600;
  constexpr uint16_t kWeekly = 1;
  constexpr int kSunday = 7;
  const rp_hash_node* const node =
      rp_hash_match_all(&terms.time_profiles, qvn_or_empty(rate.time_profile_id));
  const auto& profile = *static_cast<const time_profile_node*>(node->items);
  tm there{};
  const time_t seconds = time + profile.time_zone * kSecondsPerHour;
  (void)gmtime_r(&seconds, &there);
  const bool is_weekly = profile.type == kWeekly;
  const std::string weekdays =
      qvn_format("weekdays %d to %d, ", profile.start_week, profile.end_week);
  const std::string weekday =
      qvn_format("weekday %d, ", there.tm_wday == 0 ? kSunday : there.tm_wday);
  return qvn_format(
      "only %s%s to %s UTC%+d; it was %s%s there", is_weekly ? weekdays.c_str() : "",
      clock_text(profile.start_hour, profile.start_minute, profile.start_second).c_str(),
      clock_text(profile.end_hour, profile.end_minute, profile.end_second).c_str(),
      profile.time_zone, is_weekly ? weekday.c_str() : "",
      clock_text(there.tm_hour, there.tm_min, there.tm_sec).c_str());
}

std::string verdict_text(const pricing_terms& terms, const rate_node& rate, rate_verdict verdict,
                         int64_t time) {
  switch (verdict) {
    case rate_verdict::not_begun:
      return "had not begun";
    case rate_verdict::ended:
      return "had ended";
    case rate_verdict::no_profile:
      return "its time profile does not exist";
    case rate_verdict::outside_profile:
      return outside_text(terms, rate, time);
    case rate_verdict::applies:
      break;
  }
  return "chosen";
}

/// What keeps a rate from being loaded for the call's day.
std::string unloaded_text(const unloaded_rate& rate, int64_t time, int64_t rates_date) {
  switch (judge_dates(rate.effective_date, rate.end_date, time)) {
    case rate_verdict::not_begun:
      return "had not begun";
    case rate_verdict::ended:
      return "had ended";
    default:
      return "not among the rates of " + price_moment(rates_date);
  }
}

/// The rows of a call's rates.
class rate_rows {
 public:
  rate_rows(const pricing_terms& terms, const call_facts& call) : terms_(terms), call_(call) {}

  void add(const rate_node& rate, const std::string& verdict) {
    add(std::strlen(qvn_or_empty(rate.code)), rate.effective_date, rate.end_date,
        {price_shown(qvn_or_empty(rate.code)), price_shown(qvn_or_empty(rate.rate_id)),
         price_amount(rate.rate), "", "", price_shown(qvn_or_empty(rate.time_profile_id)),
         verdict});
  }

  void add(const unloaded_rate& rate, int64_t rates_date) {
    add(rate.code.size(), rate.effective_date, rate.end_date,
        {price_shown(rate.code), price_shown(rate.rate_id), price_amount(rate.rate), "", "",
         price_shown(rate.time_profile_id), unloaded_text(rate, call_.start_second, rates_date)});
  }

  /// Adds the rates that the walk looks at; returns the one that it chooses.
  const rate_node* add_walk() {
    const std::string number(call_.billed_number);
    return choose_record(terms_, rp_hash_search(&terms_.codes, number.c_str()), call_.start_second,
                         [this](const rate_node& rate, rate_verdict verdict) {
                           seen_.insert(&rate);
                           add(rate, verdict_text(terms_, rate, verdict, call_.start_second));
                         });
  }

  /// Adds the newer rates of the chosen one's code, up to the oldest, which the walk began with.
  void add_newer(const rate_node& chosen) {
    for (const rate_node* rate = chosen.next; !seen_.contains(rate); rate = rate->next) {
      const rate_verdict verdict = judge_rate(terms_, *rate, call_.start_second);
      add(*rate, verdict == rate_verdict::applies
                     ? "applies too, but the oldest counts"
                     : verdict_text(terms_, *rate, verdict, call_.start_second));
    }
  }

  /// All rows below their headings, longer codes first, of one code older rates first.
  std::string text() {
    if (rows_.empty()) {
      return "";
    }
    std::ranges::stable_sort(rows_, [](const placed_row& left, const placed_row& right) {
      return std::tie(right.code_length, left.effective_date) <
             std::tie(left.code_length, right.effective_date);
    });
    std::vector<std::vector<std::string>> table = {
        {"code", "rate", "price", "from", "to", "time profile"}};
    for (placed_row& row : rows_) {
      table.push_back(std::move(row.cells));
    }
    return text_table(table);
  }

 private:
  void add(std::size_t code_length, int64_t effective_date, int64_t end_date,
           std::vector<std::string> cells) {
    cells[3] = price_moment(effective_date);
    cells[4] = end_date == 0 ? "open" : price_moment(end_date);
    rows_.push_back({code_length, effective_date, std::move(cells)});
  }

  const pricing_terms& terms_;
  const call_facts& call_;
  std::set<const rate_node*> seen_;
  std::vector<placed_row> rows_;
};

}  // namespace

price_walk price_walk_rates(const pricing_terms& terms, const call_facts& call, int64_t rates_date,
                            const std::vector<unloaded_rate>& unloaded) {
  rate_rows rows(terms, call);
  const rate_node* const chosen = rows.add_walk();
  if (chosen) {
    rows.add_newer(*chosen);
  }
  const std::size_t shortest = chosen ? std::strlen(chosen->code) : 0;
  for (const unloaded_rate& rate : unloaded) {
    if (rate.code.size() >= shortest) {
      rows.add(rate, rates_date);
    }
  }
  return {chosen, rows.text()};
}

std::string price_moment(int64_t time) {
  constexpr std::size_t kZoneSize = 3;
  const std::string text = qvn_utc_timestamp(time);
  return text.substr(0, std::max(text.size(), kZoneSize) - kZoneSize);
}

std::string price_amount(float amount) {
  std::array<char, kMoneyTextSize> text;
  return amount == kNoRate ? "none" : std::string(call_money_text(text, amount));
}

std::string price_shown(std::string_view text) {
  std::string shown(text);
  qvn_mask_controls(shown, "");
  return shown;
}
