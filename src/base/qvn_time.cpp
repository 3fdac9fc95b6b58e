#include "base/qvn_time.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <sys/select.h>

namespace {

constexpr long kMicrosPerSecond = 1'000'000;
constexpr uint32_t kLargestCarriedMillis = 999'999;

/// Room for any year that a broken-down time can hold.
constexpr std::size_t kDateBufferSize = 64;

/// The longest texts that the readers look at; what follows is ignored.
constexpr std::size_t kClockTextLength = 9;
constexpr std::size_t kDateTextLength = 20;

void select_sleep(time_t seconds, suseconds_t microseconds) {
  timeval wait{seconds, microseconds};
  select(0, nullptr, nullptr, nullptr, &wait);
}

/// "%04d-%02d-%02d %02d:%02d:%02d"; the year is widened because a broken-down one counts from 1900.
std::array<char, kDateBufferSize> date_text(const tm& date) {
  std::array<char, kDateBufferSize> out{};
  std::snprintf(out.data(), out.size(), "%04ld-%02d-%02d %02d:%02d:%02d", date.tm_year + 1900L,
                date.tm_mon + 1, date.tm_mday, date.tm_hour, date.tm_min, date.tm_sec);
  return out;
}

/// The decimal number at the start of a text, cut to 32 bits; 0 for no number.
int32_t to_number(std::string_view text) {
  std::array<char, kDateTextLength + 1> copy{};
  text.copy(copy.data(), copy.size() - 1);
  return static_cast<int32_t>(std::strtol(copy.data(), nullptr, 10));
}

/// Cuts the text before `separator` off the front of `rest`; none when there is no separator.
std::optional<std::string_view> take_before(std::string_view& rest, char separator) {
  const std::size_t at = rest.find(separator);
  if (at == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view part = rest.substr(0, at);
  rest.remove_prefix(at + 1);
  return part;
}

/// Reads year, month and day, all required and at least 1, and leaves the text after the first
/// blank.
bool read_date(std::string_view& rest, tm& date) {
  const int32_t year = to_number(take_before(rest, '-').value_or(""));
  const int32_t month = to_number(take_before(rest, '-').value_or(""));
  const auto day_text = take_before(rest, ' ');
  const int32_t day = to_number(day_text.value_or(rest));
  if (!day_text) {
    rest = {};
  }
  if (year < 1 || month < 1 || day < 1) {
    return false;
  }
  date.tm_year = year - 1900;
  date.tm_mon = month - 1;
  date.tm_mday = day;
  return true;
}

/// Reads "hour:minute:second". Without a colon it is midnight; without a second colon the minutes
/// are dropped as well.
bool read_time_of_day(std::string_view rest, tm& date) {
  date.tm_hour = 0;
  date.tm_min = 0;
  date.tm_sec = 0;
  const auto hour = take_before(rest, ':');
  if (!hour) {
    return true;
  }
  date.tm_hour = to_number(*hour);
  const auto minute = take_before(rest, ':');
  if (minute && !minute->empty()) {
    date.tm_min = to_number(*minute);
    date.tm_sec = to_number(rest);
  }
  return date.tm_hour >= 0 && date.tm_hour <= 23 && date.tm_min >= 0 && date.tm_min <= 59 &&
         date.tm_sec >= 0 && date.tm_sec <= 59;
}

}  // namespace

void qvn_add_gettimeofday(timeval* time, uint32_t milliseconds) {
  if (milliseconds > kLargestCarriedMillis) {
    time->tv_sec += milliseconds / 1000;
    time->tv_usec = 0;
    return;
  }
  qvn_add_gettimeofday_us(time, milliseconds * 1000);
}

void qvn_add_gettimeofday_us(timeval* time, uint32_t microseconds) {
  const long total = time->tv_usec + static_cast<long>(microseconds);
  time->tv_sec += total / kMicrosPerSecond;
  time->tv_usec = total % kMicrosPerSecond;
}

void qvn_usleep(uint32_t microseconds) {
  select_sleep(microseconds / kMicrosPerSecond, microseconds);
}

void qvn_msleep(uint32_t milliseconds) {
  select_sleep(milliseconds / 1000, static_cast<suseconds_t>(milliseconds % 1000) * 1000);
}

void qvn_sleep(uint32_t seconds) {
  select_sleep(seconds, 0);
}

int64_t qvn_longtime_usec() {
  timeval now{};
  return gettimeofday(&now, nullptr) == 0 ? now.tv_sec * kMicrosPerSecond + now.tv_usec : 0;
}

int64_t qvn_longtime_msec() {
  return qvn_longtime_usec() / 1000;
}

tm* qvn_gmtime_r(tm* out) {
  const time_t now = time(nullptr);
  if (!out || !gmtime_r(&now, out)) {
    return nullptr;
  }
  if (out->tm_wday == 0) {
    out->tm_wday = 7;
  }
  return out;
}

int32_t qvn_get_timezone() {
  const time_t now = time(nullptr);
  tm local{};
  tm utc{};
  if (!localtime_r(&now, &local) || !gmtime_r(&now, &utc)) {
    return 0;
  }
  // Both are taken as standard time, so that their difference is the offset of now, summer time
  // included.
  local.tm_isdst = 0;
  utc.tm_isdst = 0;
  return static_cast<int32_t>((mktime(&local) - mktime(&utc)) / 3600);
}

int32_t qvn_strtime(const char* text, int32_t* hour, int32_t* minute, int32_t* second) {
  if (!text) {
    return -1;
  }
  std::string_view rest = std::string_view(text).substr(0, kClockTextLength);
  const std::string_view hour_text = take_before(rest, ':').value_or("");
  const std::string_view minute_text = take_before(rest, ':').value_or("");
  if (hour_text.empty() || minute_text.empty() || rest.empty()) {
    return -1;
  }
  *hour = to_number(hour_text);
  *minute = to_number(minute_text);
  *second = to_number(rest);
  return 0;
}

void qvn_int_date_to_string(int64_t time, char* out) {
  constexpr std::size_t kOutLength = 19;
  tm date{};
  const time_t seconds = time;
  if (!out || !localtime_r(&seconds, &date)) {
    return;
  }
  const std::size_t length = std::string_view(date_text(date).data()).copy(out, kOutLength);
  out[length] = '\0';
}

std::string qvn_utc_timestamp(int64_t time) {
  tm date{};
  const time_t seconds = time;
  if (!gmtime_r(&seconds, &date)) {
    return {};
  }
  return std::string(date_text(date).data()) + "+00";
}

int64_t qvn_string_date_to_int(const char* text) {
  if (!text) {
    return 0;
  }
  std::string_view rest = std::string_view(text).substr(0, kDateTextLength);
  const time_t now = time(nullptr);
  tm date{};
  if (!localtime_r(&now, &date) || !read_date(rest, date) || !read_time_of_day(rest, date)) {
    return 0;
  }
  return mktime(&date);
}
