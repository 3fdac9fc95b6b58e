#include "rerate/rerate_day.h"

#include <tuple>

#include "base/qvn_text.h"
#include "base/qvn_time.h"

namespace {

bool break_down(int64_t time, tm& out) {
  const time_t seconds = time;
  return gmtime_r(&seconds, &out) != nullptr;
}

bool is_later(const tm& left, const tm& right) {
  return std::tie(left.tm_year, left.tm_mon, left.tm_mday) >
         std::tie(right.tm_year, right.tm_mon, right.tm_mday);
}

int64_t local_time(tm date, int hour, int minute, int second) {
  date.tm_hour = hour;
  date.tm_min = minute;
  date.tm_sec = second;
  return std::mktime(&date);
}

/// Moves to the next calendar date; false when there is none.
bool advance(tm& date) {
  tm midnight{};
  midnight.tm_year = date.tm_year;
  midnight.tm_mon = date.tm_mon;
  midnight.tm_mday = date.tm_mday;
  return break_down(timegm(&midnight) + kSecondsPerDay, date) && is_later(date, midnight);
}

std::string date_text(const tm& date, const char* front, const char* separator) {
  constexpr int64_t kFirstYear = 1900;
  return qvn_format("%s%04ld%s%02d%s%02d", front, date.tm_year + kFirstYear, separator,
                    date.tm_mon + 1, separator, date.tm_mday);
}

}  // namespace

/// Finds the date of the next day. East of UTC the day's end lies in the middle of the date, so
/// that the way over it does not lead to the next one.
bool rerate_days::find_date() {
  constexpr int64_t kOverTheDaysEnd = 600;  // seconds
  if (!started_) {
    started_ = true;
    return break_down(from_, date_);
  }
  tm next{};
  if (!break_down(day_end_ + kOverTheDaysEnd, next)) {
    return false;
  }
  if (is_later(next, date_)) {
    date_ = next;
    return true;
  }
  return advance(date_);
}

std::optional<rerate_day> rerate_days::next() {
  const bool first = !started_;
  if (finished_ || failed_) {
    return std::nullopt;
  }
  tm last_date{};
  if (!find_date() || !break_down(to_, last_date)) {
    failed_ = true;
    return std::nullopt;
  }
  if (is_later(date_, last_date)) {
    finished_ = true;
    return std::nullopt;
  }
  rerate_day day;
  day.date = date_text(date_, "", "-");
  day.table = date_text(date_, "client_cdr", "");
  day.start = local_time(date_, 0, 0, 0);
  day_end_ = local_time(date_, 23, 59, 59);
  if (first && from_ != day.start) {
    day.lower = qvn_utc_timestamp(from_);
  }
  // East of UTC the last date goes on after its local end; calls after `to_` are not asked for.
  if (to_ <= day_end_ || !is_later(last_date, date_)) {
    day.upper = qvn_utc_timestamp(to_);
    finished_ = true;
  }
  return day;
}
