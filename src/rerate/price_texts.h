/// What pricing writes into a call record: which columns of a side, and their texts. Pure. One
/// thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "base/qvn_text.h"
#include "rerate/call_pricing.h"
#include "rerate/cdr_columns.h"

/// Columns that a priced call gets.
inline constexpr std::size_t kPricedColumns = 10;

class price_texts {
 public:
  /// `rates_date` is the date that the rates were loaded for, seconds since the epoch.
  price_texts(call_side side, int64_t rates_date);
  price_texts(const price_texts&) = delete;  // texts lie in it
  price_texts& operator=(const price_texts&) = delete;

  /// The side's columns, in ascending order.
  [[nodiscard]] std::span<const cdr_column> columns() const;

  /// The new texts of the first columns: of all of them, or, when the call has no price, "-1" for
  /// the rate alone. Valid until the next call.
  std::span<const std::string_view> of(const call_price& price);

 private:
  struct side_columns;
  static const side_columns kIngress;
  static const side_columns kEgress;

  const side_columns& side_;
  std::array<char, kMoneyTextSize> rate_text_{};
  std::array<char, kMoneyTextSize> cost_text_{};
  std::array<char, kMoneyTextSize> minutes_text_{};
  std::array<char, 8> bill_time_text_{};
  std::array<char, 16> rate_type_text_{};
  std::array<char, 24> rates_date_buffer_{};
  const std::string_view rates_date_text_;
  std::array<std::string_view, kPricedColumns> written_{};
};
