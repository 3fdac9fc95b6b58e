/// Times as texts: the input as a clock, a date and a zone, and its first 16 bytes as two times.

#include <algorithm>
#include <cstdlib>
#include <ctime>

#include "base/qvn_time.h"
#include "rate/qvn_rate_table.h"
#include "rerate/rerate_day.h"
#include "support.h"

namespace {

constexpr int64_t kDay = 86'400;

/// Seconds since the epoch at which the year 10000 begins.
constexpr int64_t kYear10000 = 253'402'300'800;

void check_clock(const char* text) {
  constexpr int32_t kUntouched = -777;
  int32_t parts[] = {kUntouched, kUntouched, kUntouched};
  const int32_t result = qvn_strtime(text, &parts[0], &parts[1], &parts[2]);
  const std::string looked_at = std::string(text).substr(0, 9);
  fuzz_input left(reinterpret_cast<const uint8_t*>(looked_at.data()), looked_at.size());
  const bool has_colons = std::count(looked_at.begin(), looked_at.end(), ':') >= 2;
  const std::string texts[] = {std::string(left.field(':')), std::string(left.field(':')),
                               std::string(left.rest())};
  const bool valid = has_colons && !texts[0].empty() && !texts[1].empty() && !texts[2].empty();
  FUZZ_CHECK((result == 0) == valid && (valid || result == -1));
  for (int i = 0; i < 3; ++i) {
    FUZZ_CHECK(parts[i] == (valid ? static_cast<int32_t>(std::strtol(texts[i].c_str(), nullptr, 10))
                                  : kUntouched));
  }
}

/// A time as the daemon writes it, and as it is read again.
void check_time(int64_t time) {
  char local[20];
  qvn_int_date_to_string(time, local);
  const std::string utc = qvn_utc_timestamp(time);
  if (time < kDay || time >= kYear10000) {
    return;
  }
  FUZZ_CHECK(utc == std::string(local) + "+00");
  FUZZ_CHECK(qvn_string_date_to_int(local) == time);
  local[10] = '\0';
  FUZZ_CHECK(qvn_string_date_to_int(local) == time - time % kDay);
}

void check_date(const char* text) {
  const int64_t time = qvn_string_date_to_int(text);
  check_time(time);
  // Only the first 20 characters count.
  FUZZ_CHECK(qvn_string_date_to_int(std::string(text).substr(0, 20).c_str()) == time);
  FUZZ_CHECK(time == 0 || std::count(text, text + std::strlen(text), '-') >= 2);
}

/// The days of a range follow one another without a gap, and only its ends have bounds.
void check_days(int64_t from, int64_t to) {
  constexpr int64_t kMostDays = 6;
  rerate_days days(from, to);
  int64_t expected_start = from - ((from % kDay) + kDay) % kDay;
  for (int64_t count = 0; count < kMostDays; ++count, expected_start += kDay) {
    const auto day = days.next();
    if (!day) {
      FUZZ_CHECK(days.failed() || expected_start > to);
      return;
    }
    FUZZ_CHECK(day->start == expected_start && expected_start <= to);
    FUZZ_CHECK(day->lower == (count == 0 && from != day->start ? qvn_utc_timestamp(from) : ""));
    FUZZ_CHECK(day->upper == (to < day->start + kDay ? qvn_utc_timestamp(to) : ""));
    FUZZ_CHECK(day->date + " 00:00:00+00" == qvn_utc_timestamp(day->start));
    FUZZ_CHECK(day->table.starts_with("client_cdr"));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto text = fuzz_copy(fuzz_before_nul(bytes));
  check_clock(text.get());
  check_date(text.get());
  const int32_t hours = get_timezone_from_str(text.get());
  FUZZ_CHECK(hours >= -12 && hours <= 12);

  fuzz_input input(data, size);
  const auto from = input.number<int64_t>();
  check_time(from);
  const int64_t near = from % kYear10000;
  check_days(near, near + input.number<int32_t>() % (4 * kDay));
  return 0;
}
