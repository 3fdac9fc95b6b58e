#include "rate_upload/deck_dates.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <ctime>
#include <iterator>
#include <strings.h>

#include "base/qvn_text.h"
#include "base/qvn_time.h"

namespace {

constexpr std::size_t kPartCount = 3;
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

/// How a format writes a date, and the places of its parts.
struct date_layout {
  const char* name;
  char separator;
  uint8_t year;
  uint8_t month;
  uint8_t day;

  [[nodiscard]] bool year_first() const { return year == 0; }
};

/// In the order of date_format.
constexpr date_layout kLayouts[] = {
    {"MM/DD/YYYY", '/', 2, 0, 1}, {"YYYY-MM-DD", '-', 0, 1, 2}, {"DD-MM-YYYY", '-', 2, 1, 0},
    {"MM-DD-YYYY", '-', 2, 0, 1}, {"DD/MM/YYYY", '/', 2, 1, 0}, {"YYYY/MM/DD", '/', 0, 1, 2},
};

/// Splits into exactly three numbers; empty parts and text after a number count as they stand.
bool split_date(char separator, const std::string& date, std::array<int, kPartCount>& parts) {
  if (std::ranges::count(date, separator) != kPartCount - 1) {
    return false;
  }
  const char* text = date.c_str();
  for (int& part : parts) {
    // A blank part must not take the separator "-" after it for the sign of the next one.
    const char* const number = text + std::strspn(text, " \t\n\v\f\r");
    part = *number == separator ? 0 : qvn_number<int>(number);
    text = std::strchr(text, separator);
    text = text ? text + 1 : "";
  }
  return true;
}

/// The part of the date that is out of range, or null. There is no lower bound on the month, and on
/// the day only where the year comes first; the conversion normalises what is left.
const char* part_out_of_range(const date_layout& layout, const calendar_date& date) {
  if (date.month > 12) {
    return "month";
  }
  if (date.day > 31 || (layout.year_first() && date.day < 0)) {
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

/// The moment in local time, normalised: 31 February is a day of March.
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

}  // namespace

date_format rate_date_format_index(const char* text) {
  const auto* const found = std::ranges::find_if(
      kLayouts, [text](const date_layout& layout) { return strcasecmp(layout.name, text) == 0; });
  return static_cast<date_format>(found - std::begin(kLayouts));
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
      column = {};  // a deck whose dates all differ must not fill the memory
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
  const date_layout& layout = kLayouts[static_cast<std::size_t>(format_)];
  std::array<int, kPartCount> parts{};
  if (!split_date(layout.separator, std::string(text), parts)) {
    refusal = date_refusal(line_number, column.label, "format invalid", text);
    return false;
  }
  const calendar_date day{parts[layout.year], parts[layout.month], parts[layout.day]};
  if (const char* const part = part_out_of_range(layout, day)) {
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
