/// The plain way to rate call records, against which the daemon's is measured: all columns of a
/// record split, those of the rating rewritten, all of them joined, one call after the other.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/qvn_text.h"
#include "rerate/call_pricing.h"
#include "rerate/cdr_columns.h"

/// The columns of one record, in the order of cdr_columns.h. A NUL follows each text that came with
/// the record.
using cdr_columns = std::span<std::string_view>;

struct rated_columns;

class plain_rater {
 public:
  /// What happened to a record: priced; priced at nothing by a rate of 0; or no rate matched.
  enum class outcome { rated, zero_rate, not_matched };

  /// The terms' trees must outlive the rater. `rates_date` is the date that the rates were loaded
  /// for, seconds since the epoch.
  plain_rater(call_side side, const pricing_terms& terms, int64_t rates_date);

  /// Rewrites the side's rating columns; of a record without a price only the rate, as "-1". The
  /// new texts are valid until the next call and as long as the rates.
  outcome rate(cdr_columns columns);

  /// The number by which a call is billed.
  [[nodiscard]] static std::string_view billed_number(cdr_columns columns);

 private:
  void write(cdr_columns columns, const rate_node& record, const rate_choice& choice,
             const call_charge& charge);

  const rated_columns& out_;  ///< the side's columns
  const pricing_terms terms_;

  std::array<char, kMoneyTextSize> rate_text_{};
  std::array<char, kMoneyTextSize> cost_text_{};
  std::array<char, kMoneyTextSize> minutes_text_{};
  std::array<char, 8> bill_time_text_{};
  std::array<char, 8> rate_type_text_{};
  std::array<char, 24> rates_date_buffer_{};
  std::string_view rates_date_text_;
};

/// Appends the record as one line of a CDR file: an empty column as "NULL", "?" between columns, a
/// line feed at the end. Throws std::bad_alloc when memory runs out.
void cdr_line_append(std::string& buffer, std::span<const std::string_view> columns);
