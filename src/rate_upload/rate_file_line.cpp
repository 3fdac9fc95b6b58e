#include "rate_upload/rate_file_line.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <string_view>
#include <strings.h>

#include "base/qvn_text.h"
#include "base/qvn_time.h"
#include "rate/qvn_rate_table.h"

namespace {

constexpr char kSeparator = ',';

struct column_name {
  std::string_view name;
  column_kind kind;
};

constexpr column_name kColumns[] = {
    {"zone", column_kind::zone},
    {"interval", column_kind::interval},
    {"seconds", column_kind::seconds},
    {"rate_type", column_kind::rate_type},
    {"min_time", column_kind::min_time},
    {"grace_time", column_kind::grace_time},
    {"code", column_kind::code},
    {"code_name", column_kind::code_name},
    {"country", column_kind::country},
    {"effective_date", column_kind::effective_date},
    {"end_date", column_kind::end_date},
    {"rate", column_kind::rate},
    {"setup_fee", column_kind::setup_fee},
    {"intra_rate", column_kind::intra_rate},
    {"inter_rate", column_kind::inter_rate},
    {"local_rate", column_kind::local_rate},
    {"ocn", column_kind::ocn},
    {"lata", column_kind::lata},
};

column_kind kind_of(std::string_view name) {
  const auto* const found = std::ranges::find_if(kColumns, [name](const column_name& column) {
    return column.name.size() == name.size() &&
           strncasecmp(column.name.data(), name.data(), name.size()) == 0;
  });
  return found == std::end(kColumns) ? column_kind::ignored : found->kind;
}

bool is_blank(char c) {
  return static_cast<unsigned char>(c) <= ' ';
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

/// Without leading and trailing blanks.
std::string_view strip(std::string_view cell) {
  while (!cell.empty() && is_blank(cell.front())) {
    cell.remove_prefix(1);
  }
  while (!cell.empty() && is_blank(cell.back())) {
    cell.remove_suffix(1);
  }
  return cell;
}

uint16_t narrow_to_16_bits(long number) {
  return static_cast<uint16_t>(number);
}
int narrow_to_int(long number) {
  return static_cast<int>(number);
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

// --- dates
// -------------------------------------------------------------------------------------------

constexpr int kPartCount = 3;
constexpr std::size_t kLongestShownDate = 29;

struct calendar_date {
  int year;
  int month;
  int day;
};

/// What distinguishes the two date columns.
struct date_column {
  const char* label;
  const char* time_text;  ///< time of day in the database's text
  int hour;
  int minute;
  int second;
  int64_t furthest;  ///< seconds ahead of now at most
};

constexpr date_column kEffectiveColumn = {"Effective", "00:00:00+00", 0, 0, 0, 90 * kSecondsPerDay};
constexpr date_column kEndColumn = {"End", "23:59:59+00", 23, 59, 59, 180 * kSecondsPerDay};

const date_column& column_of(column_kind kind) {
  return kind == column_kind::effective_date ? kEffectiveColumn : kEndColumn;
}

bool year_first(date_format format) {
  return format == date_format::ymd_dash || format == date_format::ymd_slash;
}

bool day_first(date_format format) {
  return format == date_format::dmy_dash || format == date_format::dmy_slash;
}

char separator_of(date_format format) {
  switch (format) {
    case date_format::mdy_slash:
    case date_format::dmy_slash:
    case date_format::ymd_slash:
      return '/';
    default:
      return '-';
  }
}

/// Splits into exactly three numbers; empty parts and text behind a number count as they stand.
bool split_date(date_format format, const std::string& date, std::array<int, kPartCount>& parts) {
  const char separator = separator_of(format);
  if (std::ranges::count(date, separator) != kPartCount - 1) {
    return false;
  }
  const char* text = date.c_str();
  for (int& part : parts) {
    // A blank part must not take the separator "-" behind it for the sign of the next one.
    const char* const number = text + std::strspn(text, " \t\n\v\f\r");
    part = *number == separator ? 0 : narrow_to_int(std::strtol(number, nullptr, 10));
    text = std::strchr(text, separator);
    text = text ? text + 1 : "";
  }
  return true;
}

calendar_date arrange(date_format format, const std::array<int, kPartCount>& parts) {
  if (year_first(format)) {
    return {parts[0], parts[1], parts[2]};
  }
  if (day_first(format)) {
    return {parts[2], parts[1], parts[0]};
  }
  return {parts[2], parts[0], parts[1]};
}

/// The part of the date that is out of range, or null. There is no lower bound on the month, and on
/// the day only where the year comes first; the conversion normalises what is left.
const char* part_out_of_range(date_format format, const calendar_date& date) {
  if (date.month > 12) {
    return "month";
  }
  if (date.day > 31 || (year_first(format) && date.day < 0)) {
    return "day";
  }
  if (date.year < 2000) {
    return "year";
  }
  return nullptr;
}

/// Subtracts without overflow: the numbers of a deck are unchecked.
int minus(int number, int subtrahend) {
  return number < INT_MIN + subtrahend ? INT_MIN : number - subtrahend;
}

/// The moment in local time, normalised.
int64_t to_epoch(const calendar_date& date, const date_column& column) {
  tm parts{};
  parts.tm_year = minus(date.year, 1900);
  parts.tm_mon = minus(date.month, 1);
  parts.tm_mday = date.day;
  parts.tm_hour = column.hour;
  parts.tm_min = column.minute;
  parts.tm_sec = column.second;
  return std::mktime(&parts);
}

std::string date_refusal(int line_number, const char* label, const char* what,
                         std::string_view text) {
  const auto shown = static_cast<int>(std::min(text.size(), kLongestShownDate));
  return qvn_format("Line %d : %s date %s, %.*s\n", line_number, label, what, shown, text.data());
}

// --- cells
// -------------------------------------------------------------------------------------------

/// A cell that must be a number, and where it goes.
struct number_column {
  uint16_t import_values::*field;
  const char* name;
};

number_column number_column_of(column_kind kind) {
  switch (kind) {
    case column_kind::zone:
      return {&import_values::zone, "zone"};
    case column_kind::interval:
      return {&import_values::interval, "interval"};
    case column_kind::seconds:
      return {&import_values::seconds, "second"};
    case column_kind::rate_type:
      return {&import_values::rate_type, "rate type"};
    case column_kind::min_time:
      return {&import_values::min_time, "min time"};
    default:
      return {&import_values::grace_time, "grace time"};
  }
}

/// A cell that must be a rate, and where it goes.
struct rate_column {
  float import_values::*field;
  const char* name;
};

rate_column rate_column_of(column_kind kind) {
  switch (kind) {
    case column_kind::rate:
      return {&import_values::rate, "rate"};
    case column_kind::setup_fee:
      return {&import_values::setup_fee, "setup free rate"};
    case column_kind::intra_rate:
      return {&import_values::intra_rate, "intra rate"};
    case column_kind::inter_rate:
      return {&import_values::inter_rate, "inter rate"};
    default:
      return {&import_values::local_rate, "local rate"};
  }
}

std::string invalid(int line_number, const char* name, std::string_view cell) {
  return qvn_format("Line %d : %s invalid, %.*s\n", line_number, name,
                    static_cast<int>(cell.size()), cell.data());
}

bool check_number(column_kind kind, std::string_view cell, int line_number, import_values& values,
                  std::string& refusal) {
  const number_column column = number_column_of(kind);
  if (!std::ranges::all_of(cell, is_digit)) {
    refusal = invalid(line_number, column.name, cell);
    return false;
  }
  values.*column.field = narrow_to_16_bits(number_of(cell));
  return true;
}

bool check_code(std::string_view cell, int line_number, import_values& values,
                std::string& refusal) {
  if (!std::ranges::all_of(cell, is_digit)) {
    refusal = invalid(line_number, "code", cell);
    return false;
  }
  values.code = cell;
  return true;
}

bool check_text(const char* label, std::string_view cell, int line_number, std::string_view& field,
                std::string& refusal) {
  if (cell.find(kSeparator) != std::string_view::npos) {
    refusal = qvn_format("Line %d : code %s can't include character ',' , %.*s\n", line_number,
                         label, static_cast<int>(cell.size()), cell.data());
    return false;
  }
  field = unquote(cell);
  return true;
}

bool check_rate(column_kind kind, std::string_view cell, int line_number, import_values& values,
                std::string& refusal) {
  const rate_column column = rate_column_of(kind);
  if (!qvn_is_rate(cell)) {
    refusal = invalid(line_number, column.name, cell);
    return false;
  }
  values.*column.field = narrow_to_single(amount_of(cell));
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
    case column_kind::interval:
    case column_kind::seconds:
    case column_kind::rate_type:
    case column_kind::min_time:
    case column_kind::grace_time:
      return check_number(kind, cell, line_number, values, refusal);
    case column_kind::code:
      return check_code(cell, line_number, values, refusal);
    case column_kind::code_name:
      return check_text("name", cell, line_number, values.code_name, refusal);
    case column_kind::country:
      return check_text("country", cell, line_number, values.country, refusal);
    case column_kind::effective_date:
      return dates.read(kind, cell, line_number, values.effective, refusal);
    case column_kind::end_date:
      return dates.read(kind, cell, line_number, values.end, refusal);
    case column_kind::rate:
    case column_kind::setup_fee:
    case column_kind::intra_rate:
    case column_kind::inter_rate:
    case column_kind::local_rate:
      return check_rate(kind, cell, line_number, values, refusal);
  }
  return true;
}

}  // namespace

date_format rate_date_format_index(const char* text) {
  static constexpr const char* kFormats[] = {"MM/DD/YYYY", "YYYY-MM-DD", "DD-MM-YYYY",
                                             "MM-DD-YYYY", "DD/MM/YYYY", "YYYY/MM/DD"};
  const auto* const found = std::ranges::find_if(
      kFormats, [text](const char* format) { return strcasecmp(format, text) == 0; });
  return static_cast<date_format>(found - std::begin(kFormats));
}

bool rate_header::valid() const {
  const std::span<const column_kind> present(kinds.data(), count);
  return std::ranges::count(present, column_kind::code) > 0 &&
         std::ranges::count(present, column_kind::effective_date) > 0;
}

rate_header rate_header_parse(std::string_view line) {
  std::array<std::string_view, kMaxCells> entries;
  const std::span<const std::string_view> cells = rate_line_split(line, entries);
  rate_header header;
  header.count = cells.size();
  for (std::size_t i = 0; i < cells.size(); ++i) {
    header.kinds[i] = kind_of(cells[i]);
    if (header.kinds[i] == column_kind::code) {
      header.code_column = i;
    }
  }
  return header;
}

std::span<const std::string_view> rate_line_split(std::string_view line,
                                                  std::span<std::string_view, kMaxCells> cells) {
  std::size_t count = 0;
  for (;;) {
    const std::size_t end = line.find(kSeparator);
    cells[count++] = strip(line.substr(0, end));
    if (end == std::string_view::npos || count == cells.size()) {
      return cells.first(count);
    }
    line.remove_prefix(end + 1);
  }
}

bool rate_date_reader::read(column_kind kind, std::string_view text, int line_number,
                            import_date& date, std::string& refusal) {
  constexpr std::size_t kMostKnown = 1000;
  memory& column = kind == column_kind::effective_date ? effective_ : end_;
  if (column.last && column.last->first == text) {
    date = column.last->second;
    return true;
  }
  auto found = column.known.find(text);
  if (found == column.known.end()) {
    if (!parse(kind, text, line_number, date, refusal)) {
      return false;
    }
    if (column.known.size() == kMostKnown) {
      column = {};
    }
    found = column.known.emplace(text, date).first;
  }
  column.last = &*found;
  date = found->second;
  return true;
}

bool rate_date_reader::parse(column_kind kind, std::string_view text, int line_number,
                             import_date& date, std::string& refusal) {
  const date_column& column = column_of(kind);
  if (format_ == date_format::unsupported) {
    refusal = date_refusal(line_number, column.label, "invalid", text);
    return false;
  }
  std::array<int, kPartCount> parts{};
  if (!split_date(format_, std::string(text), parts)) {
    refusal = date_refusal(line_number, column.label, "format invalid", text);
    return false;
  }
  const calendar_date day = arrange(format_, parts);
  if (const char* const part = part_out_of_range(format_, day)) {
    refusal = date_refusal(line_number, column.label, qvn_format("%s invalid", part).c_str(), text);
    return false;
  }
  const int64_t epoch = to_epoch(day, column);
  if (epoch > now_ + column.furthest) {
    refusal = date_refusal(line_number, column.label, "too long", text);
    return false;
  }
  texts_.push_back(qvn_format("%04d-%02d-%02d %s", day.year, day.month, day.day, column.time_text));
  date = {texts_.back().c_str(), epoch};
  return true;
}

bool rate_line_check(const rate_header& header, std::span<const std::string_view> cells,
                     int line_number, rate_date_reader& dates, import_values& values,
                     std::string& refusal) {
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::string_view cell = cells[i];
    if (!cell.empty() && !check_cell(header.kinds[i], cell, line_number, dates, values, refusal)) {
      return false;
    }
  }
  return true;
}

std::string_view rate_refusal_reason(std::string_view message) {
  constexpr std::string_view kBefore = " : ";
  message.remove_prefix(message.find(kBefore) + kBefore.size());
  message = message.substr(0, std::min(message.find(", "), message.find('\n')));
  return message.substr(0, message.find_last_not_of(' ') + 1);
}
