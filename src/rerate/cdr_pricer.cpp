#include "rerate/cdr_pricer.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

namespace {

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

}  // namespace

cdr_column billed_number_column(const cdr_line& line) {
  const std::string_view dnis_type = line[kIngressDnisType];
  return dnis_type.empty() || dnis_type.starts_with('0') ? kRoutingDigits : kLrnDnis;
}

call_facts facts_of(const cdr_line& line, call_side side) {
  constexpr int64_t kMicrosecondsPerSecond = 1'000'000;
  const std::string_view rate_type =
      line[side == call_side::ingress ? kIngressRateType : kEgressRateType];
  return {
      .billed_number = line[billed_number_column(line)],
      .ani = line[kTranslationAni],
      .start_second = number(line[kStartTimeOfDate]) / kMicrosecondsPerSecond,
      .duration = number(line[kCallDuration]),
      .rate_type = rate_type.empty() ? kRateTypePlain : static_cast<int32_t>(number(rate_type)),
  };
}

cdr_pricer::cdr_pricer(call_side side, const pricing_terms& terms, int64_t rates_date,
                       std::size_t columns)
    : side_(side), texts_(side, rates_date), terms_(terms), columns_(columns) {}

void cdr_pricer::add(char* line, priced_calls& out) {
  const std::size_t length = std::strlen(line);
  char* const memory = memory_for(cdr_line::room(length, columns_), out);
  waiting_call& call = calls_[waiting_++];
  call.line.split(line, length, columns_, memory);
  call.facts = facts_of(call.line, side_);
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

void cdr_pricer::price(const waiting_call& call, const rp_hash_node* longest_code,
                       priced_calls& out) {
  const call_price price =
      price_call(terms_, choose_record(terms_, longest_code, call.facts.start_second), call.facts);
  if (price.choice.rate == kNoRate) {
    ++out.unmatched_count;
    for (const std::string_view text :
         {call.line[kSessionId], call.facts.ani, call.facts.billed_number}) {
      (out.unmatched += text) += '\0';
    }
  }
  let_out(call.line, texts_.of(price), out);
}

void cdr_pricer::let_out(const cdr_line& line, std::span<const std::string_view> texts,
                         priced_calls& out) {
  char* const begin = joined_line_.with_room(line.joined_room(texts));
  const char* const end = line.join(begin, texts_.columns(), texts);
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
