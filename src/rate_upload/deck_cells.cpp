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

/// A cell that is not empty: it goes into its field, or its line is refused with a message.
struct deck_cell {
  std::string_view text;
  int line_number;
  std::string& refusal;

  bool invalid(const char* name) const {
    refusal = qvn_format("Line %d : %s invalid, %.*s\n", line_number, name,
                         static_cast<int>(text.size()), text.data());
    return false;
  }

  bool read_number(const char* name, uint16_t& field) const {
    if (!std::ranges::all_of(text, is_digit)) {
      return invalid(name);
    }
    field = static_cast<uint16_t>(number_of(text));  // cut, not refused, when it is wider
    return true;
  }

  bool read_code(std::string_view& field) const {
    field = text;
    return std::ranges::all_of(text, is_digit) || invalid("code");
  }

  /// No cell can hold the separator while lines are split at it. This keeps it out of the COPY,
  /// whose columns it would shift.
  bool read_text(const char* label, std::string_view& field) const {
    if (text.find(kCellSeparator) != std::string_view::npos) {
      refusal = qvn_format("Line %d : code %s can't include character ',' , %.*s\n", line_number,
                           label, static_cast<int>(text.size()), text.data());
      return false;
    }
    field = unquote(text);
    return true;
  }

  bool read_rate(const char* name, float& field) const {
    if (!qvn_is_rate(text)) {
      return invalid(name);
    }
    field = static_cast<float>(amount_of(text));
    return true;
  }
};

bool read_cell(column_kind kind, const deck_cell& cell, rate_date_reader& dates,
               import_values& values) {
  switch (kind) {
    case column_kind::ignored:
    case column_kind::ocn:
    case column_kind::lata:
      return true;
    case column_kind::zone:
      return cell.read_number("zone", values.zone);
    case column_kind::interval:
      return cell.read_number("interval", values.interval);
    case column_kind::seconds:
      return cell.read_number("second", values.seconds);
    case column_kind::rate_type:
      return cell.read_number("rate type", values.rate_type);
    case column_kind::min_time:
      return cell.read_number("min time", values.min_time);
    case column_kind::grace_time:
      return cell.read_number("grace time", values.grace_time);
    case column_kind::code:
      return cell.read_code(values.code);
    case column_kind::code_name:
      return cell.read_text("name", values.code_name);
    case column_kind::country:
      return cell.read_text("country", values.country);
    case column_kind::effective_date:
      return dates.read(kind, cell.text, cell.line_number, values.effective, cell.refusal);
    case column_kind::end_date:
      return dates.read(kind, cell.text, cell.line_number, values.end, cell.refusal);
    case column_kind::rate:
      return cell.read_rate("rate", values.rate);
    case column_kind::setup_fee:  // portals know this message, its word "free" included
      return cell.read_rate("setup free rate", values.setup_fee);
    case column_kind::intra_rate:
      return cell.read_rate("intra rate", values.intra_rate);
    case column_kind::inter_rate:
      return cell.read_rate("inter rate", values.inter_rate);
    case column_kind::local_rate:
      return cell.read_rate("local rate", values.local_rate);
  }
  return true;
}

}  // namespace

bool rate_line_check(const rate_header& header, std::span<const std::string_view> cells,
                     int line_number, rate_date_reader& dates, import_values& values,
                     std::string& refusal) {
  for (std::size_t i = 0; i < cells.size(); ++i) {
    // An empty cell leaves the default, in required columns too: these are tested afterwards.
    if (!cells[i].empty() &&
        !read_cell(header.kinds[i], {cells[i], line_number, refusal}, dates, values)) {
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
