#include "rerate/cdr_pricer.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

#include "rerate/call_money.h"

struct priced_columns {
  cdr_column call_rate_type;  ///< read, before it is written
  std::array<cdr_column, 10> written;
  std::size_t bill_time;  ///< its place among the written ones
  std::size_t cost;
};

namespace {

constexpr priced_columns kIngress = {
    .call_rate_type = kIngressRateType,
    .written = {kIngressClientRate, kIngressClientBillTime, kIngressClientCost, kIngressBillMinutes,
                kIngressRateType, kIngressRateId, kOrigCode, kOrigCodeName, kOrigCountry,
                kIngressRateEffectiveDate},
    .bill_time = 1,
    .cost = 2,
};

constexpr priced_columns kEgress = {
    .call_rate_type = kEgressRateType,
    .written = {kEgressRate, kEgressCost, kEgressBillTime, kEgressBillMinutes, kEgressRateType,
                kEgressRateId, kTermCode, kTermCodeName, kTermCountry, kEgressRateEffectiveDate},
    .bill_time = 2,
    .cost = 1,
};

/// As strtol reads it: blanks and a sign may stand in front, the first other byte ends it, and what
/// is too large is the largest.
int64_t number(std::string_view text) {
  constexpr auto kLargest = uint64_t{std::numeric_limits<int64_t>::max()};
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  const bool negative = text.starts_with('-');
  text.remove_prefix(negative || text.starts_with('+') ? 1 : 0);
  uint64_t value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  const uint64_t most = negative ? kLargest + 1 : kLargest;
  if (result.ec == std::errc::result_out_of_range || value > most) {
    value = most;
  }
  return static_cast<int64_t>(negative ? 0 - value : value);
}

/// A number as a text in `buffer`, which has room for any of its type.
template <class Number>
std::string_view digits(std::span<char> buffer, Number value) {
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  return {buffer.data(), result.ptr};
}

}  // namespace

cdr_pricer::cdr_pricer(call_side side, const pricing_terms& terms, int64_t rates_date,
                       std::size_t columns)
    : side_(side == call_side::ingress ? kIngress : kEgress),
      terms_(terms),
      columns_(columns),
      rates_date_text_(digits(rates_date_buffer_, rates_date)) {}

void cdr_pricer::add(char* line, priced_calls& out) {
  const std::size_t length = std::strlen(line);
  char* const memory = memory_for(cdr_line::room(length, columns_), out);
  waiting_call& call = calls_[waiting_++];
  call.line.split(line, length, columns_, memory);
  call.facts = facts_of(call.line);
  if (waiting_ == calls_.size()) {
    finish(out);
  }
}

void cdr_pricer::finish(priced_calls& out) {
  std::array<std::string_view, kRpHashInFlight> numbers;
  std::array<rp_hash_node*, kRpHashInFlight> codes{};
  for (std::size_t i = 0; i < waiting_; ++i) {
    numbers[i] = calls_[i].facts.billed_number;
  }
  rp_hash_search_each(&terms_.codes, std::span(numbers).first(waiting_), codes.data());
  for (const rp_hash_node* const code : codes) {
    if (code) {
      fetch_rate(*code);
    }
  }
  for (std::size_t i = 0; i < waiting_; ++i) {
    price(calls_[i], codes[i], out);
  }
  waiting_ = 0;
  texts_used_ = 0;
}

char* cdr_pricer::memory_for(std::size_t room, priced_calls& out) {
  constexpr std::size_t kOrdinarySize = std::size_t{32} << 10;
  if (texts_used_ + room > waiting_texts_.size()) {
    finish(out);
  }
  char* const memory = waiting_texts_.with_room(std::max(room, kOrdinarySize)) + texts_used_;
  texts_used_ += room;
  return memory;
}

call_facts cdr_pricer::facts_of(const cdr_line& line) const {
  constexpr int64_t kMicrosecondsPerSecond = 1'000'000;
  const std::string_view dnis_type = line[kIngressDnisType];
  const std::string_view rate_type = line[side_.call_rate_type];
  return {
      .billed_number =
          line[dnis_type.empty() || dnis_type.starts_with('0') ? kRoutingDigits : kLrnDnis],
      .ani = line[kTranslationAni],
      .start_second = number(line[kStartTimeOfDate]) / kMicrosecondsPerSecond,
      .duration = number(line[kCallDuration]),
      .rate_type = rate_type.empty() ? kRateTypePlain : static_cast<int32_t>(number(rate_type)),
  };
}

void cdr_pricer::price(const waiting_call& call, const rp_hash_node* longest_code,
                       priced_calls& out) {
  const rate_node* const record = choose_record(terms_, longest_code, call.facts.start_second);
  const rate_choice choice = record ? choose_rate(terms_, *record, call.facts) : rate_choice{};
  if (record && choice.rate >= BIILING_EPSINON) {
    const call_charge charge = charge_call(terms_, *record, choice.rate, call.facts.duration);
    let_out(call.line, texts_of(*record, choice, charge), out);
    return;
  }
  if (choice.rate == kNoRate) {
    ++out.unmatched_count;
    for (const std::string_view text :
         {call.line[kSessionId], call.facts.ani, call.facts.billed_number}) {
      (out.unmatched += text) += '\0';
    }
  }
  static constexpr std::array<std::string_view, 1> kNoPrice = {"-1"};
  let_out(call.line, kNoPrice, out);
}

std::span<const std::string_view> cdr_pricer::texts_of(const rate_node& record,
                                                       const rate_choice& choice,
                                                       const call_charge& charge) {
  written_ = {call_money_text(rate_text_, choice.rate),
              {},
              {},
              call_money_text(minutes_text_, charge.minutes),
              digits(rate_type_text_, choice.rate_type),
              qvn_or_empty(record.rate_id),
              qvn_or_empty(record.code),
              qvn_or_empty(record.code_name),
              qvn_or_empty(record.country),
              rates_date_text_};
  written_[side_.bill_time] = digits(bill_time_text_, charge.bill_time);
  written_[side_.cost] = call_money_text(cost_text_, charge.cost);
  return written_;
}

void cdr_pricer::let_out(const cdr_line& line, std::span<const std::string_view> texts,
                         priced_calls& out) {
  char* const begin = joined_line_.with_room(line.joined_room(texts));
  const char* const end = line.join(begin, side_.written, texts);
  out.lines.append(begin, static_cast<std::size_t>(end - begin));
}

char* cdr_pricer::workspace::with_room(std::size_t bytes) {
  constexpr std::size_t kLeast = std::size_t{4} << 10;
  if (bytes > size_) {
    size_ = 0;
    memory_.reset();
    memory_ = std::make_unique_for_overwrite<char[]>(std::max(bytes, kLeast));
    size_ = std::max(bytes, kLeast);
  }
  return memory_.get();
}
