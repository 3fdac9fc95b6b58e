#include "rerate/price_texts.h"

#include <charconv>

#include "rerate/call_money.h"

struct price_texts::side_columns {
  std::array<cdr_column, kPricedColumns> written;
  std::size_t bill_time;  ///< its place among the written ones
  std::size_t cost;
};

constexpr price_texts::side_columns price_texts::kIngress = {
    .written = {kIngressClientRate, kIngressClientBillTime, kIngressClientCost, kIngressBillMinutes,
                kIngressRateType, kIngressRateId, kOrigCode, kOrigCodeName, kOrigCountry,
                kIngressRateEffectiveDate},
    .bill_time = 1,
    .cost = 2,
};

constexpr price_texts::side_columns price_texts::kEgress = {
    .written = {kEgressRate, kEgressCost, kEgressBillTime, kEgressBillMinutes, kEgressRateType,
                kEgressRateId, kTermCode, kTermCodeName, kTermCountry, kEgressRateEffectiveDate},
    .bill_time = 2,
    .cost = 1,
};

namespace {

/// A number as a text in `buffer`, which has room for any of its type.
template <class Number>
std::string_view digits(std::span<char> buffer, Number value) {
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  return {buffer.data(), result.ptr};
}

}  // namespace

price_texts::price_texts(call_side side, int64_t rates_date)
    : side_(side == call_side::ingress ? kIngress : kEgress),
      rates_date_text_(digits(rates_date_buffer_, rates_date)) {}

std::span<const cdr_column> price_texts::columns() const {
  return side_.written;
}

std::span<const std::string_view> price_texts::of(const call_price& price) {
  static constexpr std::array<std::string_view, 1> kNoPrice = {"-1"};
  if (!price.is_priced) {
    return kNoPrice;
  }
  const rate_node& record = *price.record;
  written_ = {call_money_text(rate_text_, price.choice.rate),
              {},
              {},
              call_money_text(minutes_text_, price.charge.minutes),
              digits(rate_type_text_, price.choice.rate_type),
              qvn_or_empty(record.rate_id),
              qvn_or_empty(record.code),
              qvn_or_empty(record.code_name),
              qvn_or_empty(record.country),
              rates_date_text_};
  written_[side_.bill_time] = digits(bill_time_text_, price.charge.bill_time);
  written_[side_.cost] = call_money_text(cost_text_, price.charge.cost);
  return written_;
}
