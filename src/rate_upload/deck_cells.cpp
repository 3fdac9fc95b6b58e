#include "rate_upload/deck_cells.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdlib>

#include "base/qvn_text.h"
#include "rate/qvn_rate_table.h"

namespace {

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

/// Cut, not refused, when it is wider.
uint16_t narrow_to_16_bits(long number) {
  return static_cast<uint16_t>(number);
}
float narrow_to_single(double number) {
  return static_cast<float>(number);
}

/// The number of a text of digits; the widest for what is above it.
long number_of(std::string_view digits) {
  long number = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return result.ec == std::errc{} ? number : LONG_MAX;
}

/// The amount at the beginning of a text of digits and points.
double amount_of(std::string_view text) {
  double amount = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), amount);
  // What is too large or too small for a double is rounded by strtod alone.
  return result.ec == std::errc{} ? amount : std::strtod(std::string(text).c_str(), nullptr);
}

/// Without the quotes of a quoted value.
std::string_view unquote(std::string_view text) {
  if (!text.starts_with('"')) {
    return text;
  }
  text.remove_prefix(std::min(text.find_first_not_of('"'), text.size()));
  return text.substr(0, text.find('"'));
}

/// Refuses the cell, as one that is not what its column holds.
bool invalid(const char* name, std::string_view cell, int line_number, std::string& refusal) {
  refusal = qvn_format("Line %d : %s invalid, %.*s\n", line_number, name,
                       static_cast<int>(cell.size()), cell.data());
  return false;
}

bool check_number(const char* name, std::string_view cell, int line_number, uint16_t& field,
                  std::string& refusal) {
  if (!std::ranges::all_of(cell, is_digit)) {
    return invalid(name, cell, line_number, refusal);
  }
  field = narrow_to_16_bits(number_of(cell));
  return true;
}

bool check_code(std::string_view cell, int line_number, std::string_view& field,
                std::string& refusal) {
  if (!std::ranges::all_of(cell, is_digit)) {
    return invalid("code", cell, line_number, refusal);
  }
  field = cell;
  return true;
}

/// No cell can hold the separator while lines are split at it. This keeps it out of the COPY, whose
/// columns it would shift, however lines are split.
bool check_text(const char* label, std::string_view cell, int line_number, std::string_view& field,
                std::string& refusal) {
  if (cell.find(kCellSeparator) != std::string_view::npos) {
    refusal = qvn_format("Line %d : code %s can't include character ',' , %.*s\n", line_number,
                         label, static_cast<int>(cell.size()), cell.data());
    return false;
  }
  field = unquote(cell);
  return true;
}

bool check_rate(const char* name, std::string_view cell, int line_number, float& field,
                std::string& refusal) {
  if (!qvn_is_rate(cell)) {
    return invalid(name, cell, line_number, refusal);
  }
  field = narrow_to_single(amount_of(cell));
  return true;
}

bool check_cell(column_kind kind, std::string_view cell, int line_number, rate_date_reader& dates,
                import_values& values, std::string& refusal) {
  switch (kind) {
    case column_kind::ignored:
    case column_kind::ocn:
    case column_kind::lata:
      return true;
    case column_kind::zone:
      return check_number("zone", cell, line_number, values.zone, refusal);
    case column_kind::interval:
      return check_number("interval", cell, line_number, values.interval, refusal);
    case column_kind::seconds:
      return check_number("second", cell, line_number, values.seconds, refusal);
    case column_kind::rate_type:
      return check_number("rate type", cell, line_number, values.rate_type, refusal);
    case column_kind::min_time:
      return check_number("min time", cell, line_number, values.min_time, refusal);
    case column_kind::grace_time:
      return check_number("grace time", cell, line_number, values.grace_time, refusal);
    case column_kind::code:
      return check_code(cell, line_number, values.code, refusal);
    case column_kind::code_name:
      return check_text("name", cell, line_number, values.code_name, refusal);
    case column_kind::country:
      return check_text("country", cell, line_number, values.country, refusal);
    case column_kind::effective_date:
      return dates.read(kind, cell, line_number, values.effective, refusal);
    case column_kind::end_date:
      return dates.read(kind, cell, line_number, values.end, refusal);
    case column_kind::rate:
      return check_rate("rate", cell, line_number, values.rate, refusal);
    case column_kind::setup_fee:  // portals know this message, its word "free" included
      return check_rate("setup free rate", cell, line_number, values.setup_fee, refusal);
    case column_kind::intra_rate:
      return check_rate("intra rate", cell, line_number, values.intra_rate, refusal);
    case column_kind::inter_rate:
      return check_rate("inter rate", cell, line_number, values.inter_rate, refusal);
    case column_kind::local_rate:
      return check_rate("local rate", cell, line_number, values.local_rate, refusal);
  }
  return true;
}

}  // namespace

bool rate_line_check(const rate_header& header, std::span<const std::string_view> cells,
                     int line_number, rate_date_reader& dates, import_values& values,
                     std::string& refusal) {
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::string_view cell = cells[i];
    // An empty cell leaves the default, in required columns too: these are tested afterwards.
    if (!cell.empty() && !check_cell(header.kinds[i], cell, line_number, dates, values, refusal)) {
      return false;
    }
  }
  return true;
}

// A message is "Line 3 : reason, cell"; two reasons have a blank before the comma.
std::string_view rate_refusal_reason(std::string_view message) {
  constexpr std::string_view kBefore = " : ";
  message.remove_prefix(message.find(kBefore) + kBefore.size());
  message = message.substr(0, std::min(message.find(", "), message.find('\n')));
  return message.substr(0, message.find_last_not_of(' ') + 1);
}
