/// The days of a rerating: which CDR table each one has and which part of it is asked for. Pure but
/// for the process's time zone.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

/// One day's share of the time range.
struct rerate_day {
  std::string date;   ///< "2026-01-31"
  std::string table;  ///< "client_cdr20260131"
  std::string lower;  ///< first moment, "2026-01-31 12:00:00+00"; empty: from the day's start
  std::string upper;  ///< last moment; empty: to the day's end
  int64_t start = 0;  ///< midnight of local time, seconds since the epoch
};

/// Walks the days from `from` to `to`, both included, seconds since the epoch. Dates are UTC's; the
/// bounds of a day are those of local time, so the daemon is to be run with TZ=UTC.
class rerate_days {
 public:
  rerate_days(int64_t from, int64_t to) : from_(from), to_(to) {}

  /// The next day, or none after the last one or when `failed`. Throws std::bad_alloc when memory
  /// runs out.
  [[nodiscard]] std::optional<rerate_day> next();

  /// Whether a time could not be turned into a date.
  [[nodiscard]] bool failed() const { return failed_; }

 private:
  bool find_date();

  int64_t from_;
  int64_t to_;
  tm date_{};  ///< of the day given last
  int64_t day_end_ = 0;
  bool started_ = false;
  bool finished_ = false;
  bool failed_ = false;
};
