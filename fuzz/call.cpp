/// Calls through the rating engine, with the rates they are rated by. One line a thing:
///
///     s0,2,4,1,1,5,7,3,9        side (and 2: of 130 columns), rounding, decimals, local rates,
///                               prefix, its lengths
///     r4420,0.015,0,0,60,1,...  a rate: code, rate, dates, increments, fee, time profile, others
///     t1,2,1,7,0,8,0,0,20,0,0   a time profile: id, type, weekdays, zone, hours
///     j1212,5                   a jurisdiction's prefix
///     c44201,1212,...           a call: numbers, start, duration, kind of number, rate type
///     x...                      a call as a row of all its columns; "\r" stands for a line feed
///     X...                      the same after 40,000 more bytes
///
/// What comes out for all calls between two changes is compared with the calls one by one: split
/// and joined the plain way, the rate searched among all rates, the cost rounded in its text.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <map>
#include <tuple>
#include <vector>

#include "db/qvn_row_split.h"
#include "rerate/cdr_pricer.h"
#include "rerate/pricing_world.h"
#include "support.h"

namespace {

/// The numbers and texts of a line.
struct line_reader : fuzz_input {
  using fuzz_input::fuzz_input;

  std::string text() { return std::string(field(',')); }
  std::string key() { return text().substr(0, 255); }  // longer ones are cut by the trees
  template <class Number>
  Number number() {
    return static_cast<Number>(std::strtol(text().c_str(), nullptr, 10));
  }
  /// A price as the database has one; absent is -1.
  float money() {
    const std::string price = text();
    const double value = price.empty() ? -1.0 : std::strtod(price.c_str(), nullptr);
    return std::abs(value) < 1e12 ? static_cast<float>(value) : -1.0F;
  }
};

/// In the order in which priced_texts makes them.
constexpr std::array kWrittenIngress = {
    kIngressClientRate, kIngressClientBillTime,   kIngressClientCost, kIngressBillMinutes,
    kIngressRateType,   kIngressRateId,           kOrigCode,          kOrigCodeName,
    kOrigCountry,       kIngressRateEffectiveDate};
constexpr std::array kWrittenEgress = {
    kEgressRate,   kEgressBillTime, kEgressCost,   kEgressBillMinutes, kEgressRateType,
    kEgressRateId, kTermCode,       kTermCodeName, kTermCountry,       kEgressRateEffectiveDate};

using texts = std::vector<std::string>;

class call_world {
 public:
  void take(const std::string& line) {
    if (line.empty()) {
      return;
    }
    line_reader left(std::string_view(line).substr(1));
    const char kind = line.front();
    if (kind != 'c' && kind != 'x') {
      price_rows();
    }
    kind == 's'   ? take_settings(left)
    : kind == 'r' ? take_rate(left)
    : kind == 't' ? take_profile(left)
    : kind == 'j' ? take_jurisdiction(left)
    : kind == 'c' ? take_call(left)
                  : take_row(left, kind == 'X' ? 40'000 : 0);
  }

  /// Prices the calls that came since the last change.
  void price_rows() {
    cdr_pricer pricer(side_, world_.terms, kRatesDate, columns_);
    priced_calls plain;
    priced_calls priced;
    for (const std::string& row : rows_) {
      price_plainly(row, plain);
      pricer.add(fuzz_copy(row).get(), priced);
    }
    pricer.finish(priced);
    FUZZ_CHECK(priced.lines == plain.lines && priced.unmatched == plain.unmatched);
    rows_.clear();
  }

 private:
  void take_settings(line_reader& left) {
    const auto side = left.number<unsigned>();
    side_ = side % 2 == 0 ? call_side::ingress : call_side::egress;
    columns_ = side / 2 == 1 ? kCdrColumnsWithQ850 : kCdrColumns;
    pricing_terms& terms = world_.terms;
    terms.rate_rounding = left.number<uint8_t>();
    terms.rate_decimal = left.number<uint8_t>();
    terms.local_rates = left.number<int>() == 1;
    prefix_ = left.text();
    terms.jurisdiction = {prefix_.c_str(), left.number<uint8_t>(), left.number<uint8_t>(),
                          left.number<uint8_t>(), left.number<uint8_t>()};
  }

  void take_rate(line_reader& left) {
    const std::string code = left.key();
    const float price = left.money();
    const auto from = left.number<int64_t>();
    const auto to = left.number<int64_t>();
    std::array<uint16_t, 4> times{};
    std::ranges::generate(times, [&] { return left.number<uint16_t>(); });
    const float fee = left.money();
    rate_node& rate = world_.add_rate(code, std::to_string(rates_.size()), price, from, left.key());
    rate.end_date = to;
    std::tie(rate.seconds, rate.interval, rate.min_time, rate.grace_time) = std::tuple_cat(times);
    rate.setup_fee = std::max(fee, 0.0F);
    rate.intra_rate = left.money();
    rate.inter_rate = left.money();
    rate.local_rate = left.money();
    rates_.push_back(&rate);
  }

  void take_profile(line_reader& left) {
    const std::string id = left.key();
    time_profile_node& profile = world_.add_time_profile(id);
    profile.type = left.number<uint16_t>();
    profile.start_week = left.number<uint16_t>();
    profile.end_week = left.number<uint16_t>();
    profile.time_zone = left.number<int32_t>() % 13;
    for (int32_t* const part : {&profile.start_hour, &profile.start_minute, &profile.start_second,
                                &profile.end_hour, &profile.end_minute, &profile.end_second}) {
      *part = left.number<int32_t>();
    }
    profiles_[id] = &profile;
  }

  void take_jurisdiction(line_reader& left) {
    const std::string prefix = left.key();
    world_.add_jurisdiction(prefix, left.text(), left.text());
  }

  void take_call(line_reader& left) {
    std::array<std::string, kCdrColumns> columns;
    for (const cdr_column column : {kRoutingDigits, kTranslationAni, kStartTimeOfDate,
                                    kCallDuration, kIngressDnisType, kLrnDnis}) {
      columns[column] = left.text();
    }
    columns[kIngressRateType] = columns[kEgressRateType] = left.text();
    std::string row;
    for (const std::string& column : columns) {
      row += column + ",";
    }
    rows_.push_back(row);
  }

  void take_row(const line_reader& left, std::size_t more) {
    rows_.push_back(std::string(more, '1') + std::string(left.rest()));
    std::ranges::replace(rows_.back(), '\r', '\n');
  }

  void price_plainly(const std::string& row, priced_calls& out) const {
    const auto bytes = fuzz_copy(row);
    std::vector<std::string_view> columns(columns_, "");
    pg_row_csv_parse(bytes.get(), columns);
    const auto number = [&](std::size_t column) {
      return std::strtol(columns[column].data(), nullptr, 10);
    };
    const auto& written = side_ == call_side::ingress ? kWrittenIngress : kWrittenEgress;
    const std::string_view type = columns[kIngressDnisType];
    const call_facts call = {
        .billed_number = columns[type.empty() || type.front() == '0' ? kRoutingDigits : kLrnDnis],
        .ani = columns[kTranslationAni],
        .start_second = number(kStartTimeOfDate) / 1'000'000,
        .duration = number(kCallDuration),
        .rate_type = columns[written[4]].empty() ? 3 : static_cast<int32_t>(number(written[4]))};
    const rate_node* const rate = expected_rate(call.billed_number, call.start_second);
    const rate_choice choice = rate ? choose_rate(world_.terms, *rate, call) : rate_choice{};
    texts priced = {"-1"};
    if (rate && choice.rate >= BIILING_EPSINON) {
      priced = priced_texts(*rate, choice, call.duration);
    } else if (choice.rate == kNoRate) {
      for (const std::string_view text : {columns[kSessionId], call.ani, call.billed_number}) {
        (out.unmatched += text) += '\0';
      }
    }
    for (std::size_t i = 0; i < priced.size(); ++i) {
      columns[written[i]] = priced[i];
    }
    for (const std::string_view column : columns) {
      (out.lines += column.empty() ? "NULL" : column) += '?';
    }
    out.lines.back() = '\n';
  }

  /// The rate that applies: of the longest code the oldest, and of equal dates the newest.
  const rate_node* expected_rate(std::string_view number, int64_t start) const {
    const rate_node* best = nullptr;
    for (const rate_node* const rate : rates_) {
      const std::string_view code = qvn_or_empty(rate->code);
      if (code.empty() || !number.starts_with(code) || rate->effective_date > start ||
          (rate->end_date != 0 && rate->end_date < start) || !profile_allows(*rate, start)) {
        continue;
      }
      const std::size_t length = best ? std::strlen(best->code) : 0;
      if (!best || code.size() > length ||
          (code.size() == length && rate->effective_date <= best->effective_date)) {
        best = rate;
      }
    }
    return best;
  }

  bool profile_allows(const rate_node& rate, int64_t start) const {
    if (!rate.time_profile_id) {
      return true;
    }
    const auto found = profiles_.find(std::string(rate.time_profile_id));
    return found != profiles_.end() && time_profile_applies(*found->second, start);
  }

  static std::string money(double amount) {
    return qvn_format("%f", static_cast<double>(static_cast<float>(amount)));
  }

  /// A cost as it is written, with the terms' decimals.
  std::string rounded(double cost) const {
    const std::string all = money(cost);
    const auto decimals = std::min<std::size_t>(world_.terms.rate_decimal, 6);
    const std::size_t kept = all.find('.') + 1 + decimals;
    const bool up = world_.terms.rate_rounding == 0
                        ? all.find_first_not_of('0', kept) != std::string::npos
                        : world_.terms.rate_rounding == 2 && all[kept] > '4';
    const double step =
        up && decimals > 0 ? std::strtod(("1e-" + std::to_string(decimals)).c_str(), nullptr) : 0.0;
    return money(std::strtod(all.substr(0, kept).c_str(), nullptr) + step);
  }

  texts priced_texts(const rate_node& rate, const rate_choice& choice, int64_t duration) const {
    const int64_t seconds = rate.seconds % 256;
    const int64_t interval = rate.interval % 256;
    uint64_t billed = 0;
    double minutes = 0.0;
    double cost = 0.0;
    if (duration != 0 && seconds != 0 && interval != 0) {
      const int64_t increments = duration / interval + (duration % interval != 0 ? 1 : 0);
      billed = duration <= rate.min_time
                   ? rate.min_time
                   : static_cast<uint64_t>(increments) * static_cast<uint64_t>(interval) % 65'536;
      minutes = static_cast<double>(billed) / static_cast<double>(seconds);
      cost =
          duration < rate.grace_time ? 0.0 : double{rate.setup_fee} + minutes * double{choice.rate};
    }
    return {money(choice.rate),
            std::to_string(billed),
            rounded(cost),
            money(minutes),
            std::to_string(choice.rate_type),
            qvn_or_empty(rate.rate_id),
            qvn_or_empty(rate.code),
            qvn_or_empty(rate.code_name),
            qvn_or_empty(rate.country),
            std::to_string(kRatesDate)};
  }

  static constexpr int64_t kRatesDate = 1'790'000'000;

  pricing_world world_;
  std::vector<const rate_node*> rates_;
  std::map<std::string, const time_profile_node*, std::less<>> profiles_;
  std::string prefix_;
  call_side side_ = call_side::ingress;
  std::size_t columns_ = kCdrColumns;
  std::vector<std::string> rows_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  call_world world;
  for (fuzz_input input(data, size); !input.empty();) {
    world.take(input.line());
  }
  world.price_rows();
  return 0;
}
