#include "rate_upload/rate_file_line.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <string_view>
#include <strings.h>

#include "base/qvn_text.h"
#include "rate/qvn_rate_table.h"

namespace {

constexpr char kSeparator = ',';

struct column_name {
  const char* name;
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

column_kind kind_of(const char* name) {
  const auto* const found = std::ranges::find_if(
      kColumns, [name](const column_name& column) { return strcasecmp(column.name, name) == 0; });
  return found == std::end(kColumns) ? column_kind::ignored : found->kind;
}

/// Without leading and trailing blanks; cut in place.
char* strip(char* cell) {
  return qvn_trim_suffix_blank(qvn_skip_blanks(cell));
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

/// Without the quotes of a quoted value.
char* unquote(char* text) {
  if (*text != '"') {
    return text;
  }
  char* const inside = qvn_skip_named_char(text, '"');
  inside[std::strcspn(inside, "\"")] = '\0';
  return inside;
}

// --- dates
// -------------------------------------------------------------------------------------------

constexpr int kPartCount = 3;
constexpr int64_t kSecondsPerDay = 86'400;
constexpr int kLongestShownDate = 29;

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
bool split_date(date_format format, const char* text, std::array<int, kPartCount>& parts) {
  const char separator = separator_of(format);
  if (std::count(text, text + std::strlen(text), separator) != kPartCount - 1) {
    return false;
  }
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

std::string date_refusal(int line_number, const char* label, const char* what, const char* text) {
  return qvn_format("Line %d : %s date %s, %.*s\n", line_number, label, what, kLongestShownDate,
                    text);
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

std::string invalid(int line_number, const char* name, const char* cell) {
  return qvn_format("Line %d : %s invalid, %s\n", line_number, name, cell);
}

bool check_number(column_kind kind, const char* cell, int line_number, import_values& values,
                  std::string& refusal) {
  const number_column column = number_column_of(kind);
  if (!qvn_is_digit(cell)) {
    refusal = invalid(line_number, column.name, cell);
    return false;
  }
  values.*column.field = narrow_to_16_bits(std::strtol(cell, nullptr, 10));
  return true;
}

bool check_code(const char* cell, int line_number, import_values& values, std::string& refusal) {
  if (!qvn_is_digit(cell)) {
    refusal = invalid(line_number, "code", cell);
    return false;
  }
  values.code = cell;
  return true;
}

bool check_text(const char* label, char* cell, int line_number, std::string_view& field,
                std::string& refusal) {
  if (std::strchr(cell, kSeparator)) {
    refusal = qvn_format("Line %d : code %s can't include character ',' , %s\n", line_number, label,
                         cell);
    return false;
  }
  field = unquote(cell);
  return true;
}

bool check_rate(column_kind kind, const char* cell, int line_number, import_values& values,
                std::string& refusal) {
  const rate_column column = rate_column_of(kind);
  if (!qvn_is_rate(cell)) {
    refusal = invalid(line_number, column.name, cell);
    return false;
  }
  values.*column.field = narrow_to_single(std::strtod(cell, nullptr));
  return true;
}

bool check_cell(column_kind kind, char* cell, int line_number, rate_date_reader& dates,
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

rate_header rate_header_parse(char* line) {
  std::array<char*, kMaxCells> entries;
  const std::span<char*> cells = rate_line_split(line, entries);
  rate_header header;
  header.count = cells.size();
  for (std::size_t i = 0; i < cells.size(); ++i) {
    header.kinds[i] = kind_of(strip(cells[i]));
  }
  return header;
}

std::span<char*> rate_line_split(char* line, std::span<char*, kMaxCells> cells) {
  const int32_t last = qvn_row_parse_to_array(line, cells, kSeparator);
  return cells.first(static_cast<std::size_t>(last) + 1);
}

bool rate_date_reader::read(column_kind kind, const char* text, int line_number, import_date& date,
                            std::string& refusal) {
  memory& last = kind == column_kind::effective_date ? effective_ : end_;
  if (last.date.text && last.text == text) {
    date = last.date;
    return true;
  }
  if (!parse(kind, text, line_number, date, refusal)) {
    return false;
  }
  last.text = text;
  last.date = date;
  return true;
}

bool rate_date_reader::parse(column_kind kind, const char* text, int line_number, import_date& date,
                             std::string& refusal) {
  const date_column& column = column_of(kind);
  if (format_ == date_format::unsupported) {
    refusal = date_refusal(line_number, column.label, "invalid", text);
    return false;
  }
  std::array<int, kPartCount> parts{};
  if (!split_date(format_, text, parts)) {
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

bool rate_line_check(const rate_header& header, std::span<char*> cells, int line_number,
                     rate_date_reader& dates, import_values& values, std::string& refusal) {
  for (std::size_t i = 0; i < cells.size(); ++i) {
    char* const cell = strip(cells[i]);
    if (*cell && !check_cell(header.kinds[i], cell, line_number, dates, values, refusal)) {
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
