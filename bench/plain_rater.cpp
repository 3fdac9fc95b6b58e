#include "plain_rater.h"

#include <charconv>
#include <cstdlib>
#include <cstring>

/// The columns that a side's rating goes to, and the one that holds the call's own rate type.
struct rated_columns {
  cdr_column rate;
  cdr_column cost;
  cdr_column bill_time;
  cdr_column bill_minutes;
  cdr_column rate_id;
  cdr_column code;
  cdr_column code_name;
  cdr_column country;
  cdr_column rate_type;
  cdr_column effective_date;
};

namespace {

constexpr rated_columns kIngressColumns = {
    .rate = kIngressClientRate,
    .cost = kIngressClientCost,
    .bill_time = kIngressClientBillTime,
    .bill_minutes = kIngressBillMinutes,
    .rate_id = kIngressRateId,
    .code = kOrigCode,
    .code_name = kOrigCodeName,
    .country = kOrigCountry,
    .rate_type = kIngressRateType,
    .effective_date = kIngressRateEffectiveDate,
};

constexpr rated_columns kEgressColumns = {
    .rate = kEgressRate,
    .cost = kEgressCost,
    .bill_time = kEgressBillTime,
    .bill_minutes = kEgressBillMinutes,
    .rate_id = kEgressRateId,
    .code = kTermCode,
    .code_name = kTermCodeName,
    .country = kTermCountry,
    .rate_type = kEgressRateType,
    .effective_date = kEgressRateEffectiveDate,
};

int64_t number(std::string_view column) {
  return std::strtol(column.data(), nullptr, 10);
}

/// A number as a text in `buffer`, which has room for any of its type.
template <class Number>
std::string_view digits(std::span<char> buffer, Number value) {
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  return {buffer.data(), result.ptr};
}

call_facts facts_of(cdr_columns columns, std::string_view rate_type) {
  constexpr int64_t kMicrosecondsASecond = 1'000'000;
  return {
      .billed_number = plain_rater::billed_number(columns),
      .ani = columns[kTranslationAni],
      .start_second = number(columns[kStartTimeOfDate]) / kMicrosecondsASecond,
      .duration = number(columns[kCallDuration]),
      .rate_type = rate_type.empty() ? kRateTypePlain : static_cast<int32_t>(number(rate_type)),
  };
}

/// Copies a text to `end`. Nearly all columns have 1 to 16 bytes, copied as two pieces that
/// overlap, without a call.
char* put(char* end, std::string_view text) {
  const std::size_t size = text.size();
  const char* const begin = text.data();
  const auto copy_ends = [&](auto piece) {
    std::memcpy(&piece, begin, sizeof piece);
    auto last = piece;
    std::memcpy(&last, begin + size - sizeof piece, sizeof piece);
    std::memcpy(end, &piece, sizeof piece);
    std::memcpy(end + size - sizeof piece, &last, sizeof piece);
  };
  if (size > 16) {
    std::memcpy(end, begin, size);
  } else if (size >= 8) {
    copy_ends(uint64_t{});
  } else if (size >= 4) {
    copy_ends(uint32_t{});
  } else if (size >= 2) {
    copy_ends(uint16_t{});
  } else if (size == 1) {
    *end = *begin;
  }
  return end + size;
}

}  // namespace

plain_rater::plain_rater(call_side side, const pricing_terms& terms, int64_t rates_date)
    : out_(side == call_side::ingress ? kIngressColumns : kEgressColumns),
      terms_(terms),
      rates_date_text_(digits(rates_date_buffer_, rates_date)) {}

plain_rater::outcome plain_rater::rate(cdr_columns columns) {
  const call_facts call = facts_of(columns, columns[out_.rate_type]);
  const rate_node* const record = choose_record(
      terms_, rp_hash_search(&terms_.codes, call.billed_number.data()), call.start_second);
  const rate_choice choice = record ? choose_rate(terms_, *record, call) : rate_choice{};
  if (record && choice.rate >= BIILING_EPSINON) {
    write(columns, *record, choice, charge_call(terms_, *record, choice.rate, call.duration));
    return outcome::rated;
  }
  columns[out_.rate] = "-1";
  return choice.rate == kNoRate ? outcome::not_matched : outcome::zero_rate;
}

std::string_view plain_rater::billed_number(cdr_columns columns) {
  const std::string_view type = columns[kIngressDnisType];
  return columns[type.empty() || type.starts_with('0') ? kRoutingDigits : kLrnDnis];
}

void plain_rater::write(cdr_columns columns, const rate_node& record, const rate_choice& choice,
                        const call_charge& charge) {
  columns[out_.rate] = qvn_money_text(rate_text_, choice.rate);
  columns[out_.cost] = qvn_money_text(cost_text_, charge.cost);
  columns[out_.bill_time] = digits(bill_time_text_, charge.bill_time);
  columns[out_.bill_minutes] = qvn_money_text(minutes_text_, charge.minutes);
  columns[out_.rate_id] = qvn_or_empty(record.rate_id);
  columns[out_.code] = qvn_or_empty(record.code);
  columns[out_.code_name] = qvn_or_empty(record.code_name);
  columns[out_.country] = qvn_or_empty(record.country);
  columns[out_.rate_type] = digits(rate_type_text_, choice.rate_type);
  columns[out_.effective_date] = rates_date_text_;
}

void cdr_line_append(std::string& buffer, std::span<const std::string_view> columns) {
  static constexpr std::string_view kAbsent = "NULL";
  const std::size_t begin = buffer.size();
  std::size_t room = columns.size() * (kAbsent.size() + 1);
  for (const std::string_view column : columns) {
    room += column.size();
  }
  buffer.resize(begin + room);
  char* end = buffer.data() + begin;
  for (const std::string_view column : columns) {
    end = put(end, column.empty() ? kAbsent : column);
    *end++ = '?';
  }
  end[-1] = '\n';
  buffer.resize(static_cast<std::size_t>(end - buffer.data()));
}
