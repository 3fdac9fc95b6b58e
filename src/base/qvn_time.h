/// Clock, sleep and date helpers. Stateless; every function may be called by any thread.
///
/// Times are seconds since the epoch in 64-bit signed integers unless a name says otherwise. The
/// daemon itself does without the two qvn_add_gettimeofday, the two qvn_longtime, qvn_get_timezone,
/// qvn_int_date_to_string and qvn_string_date_to_int.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <sys/time.h>

/// Adds milliseconds, carrying into the seconds. Above 999,999 milliseconds only whole seconds are
/// added and the microseconds become 0.
void qvn_add_gettimeofday(timeval* time, uint32_t milliseconds);

/// Adds microseconds, carrying into the seconds.
void qvn_add_gettimeofday_us(timeval* time, uint32_t microseconds);

/// Sleeps that number of microseconds by `select`. The full count is handed over beside the whole
/// seconds contained in it, so from a second on those count twice: 1,500,000 sleeps 2.5 seconds. A
/// signal handler that runs meanwhile ends each of the three sleeps.
void qvn_usleep(uint32_t microseconds);
void qvn_msleep(uint32_t milliseconds);
void qvn_sleep(uint32_t seconds);

/// The current time since the epoch; 0 when the clock cannot be read.
[[nodiscard]] int64_t qvn_longtime_usec();
[[nodiscard]] int64_t qvn_longtime_msec();

/// The current UTC time broken down; Sunday is weekday 7. Returns the given record, or null when
/// the conversion fails.
tm* qvn_gmtime_r(tm* out);

/// The local offset from UTC in whole hours, truncated toward zero, positive east of Greenwich.
[[nodiscard]] int32_t qvn_get_timezone();

/// Reads hours, minutes and seconds, separated by colons, from at most the first 9 characters. Both
/// colons and all three parts must be there; no range check. 0, or -1 with the outputs untouched.
[[nodiscard]] int32_t qvn_strtime(const char* text, int32_t* hour, int32_t* minute,
                                  int32_t* second);

/// Writes the local time as "%04d-%02d-%02d %02d:%02d:%02d" and a NUL into `out`, which has room
/// for 20 bytes. Nothing when `out` is absent or the conversion fails.
void qvn_int_date_to_string(int64_t time, char* out);

/// "%04d-%02d-%02d %02d:%02d:%02d+00" of a time in UTC: the form in which times go to the database.
/// An empty text when the time cannot be broken down. Throws std::bad_alloc when memory runs out.
[[nodiscard]] std::string qvn_utc_timestamp(int64_t time);

/// A date ("year-month-day", optionally a blank and "hour:minute:second") as local time; 0 for
/// anything refused. Months and days above their range are normalised as `mktime` does. Hours
/// without a second colon keep only the hour.
[[nodiscard]] int64_t qvn_string_date_to_int(const char* text);
