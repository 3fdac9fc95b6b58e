/// Dates of a rate deck: a byte for the format and the column, then lines, each a cell.

#include <cstdio>
#include <ctime>

#include "rate_upload/deck_dates.h"
#include "support.h"

namespace {

constexpr int64_t kNow = 1'800'000'000;
constexpr int64_t kDay = 86'400;
constexpr int kLine = 7;

struct date_parts {
  int year = 0;
  int month = 0;
  int day = 0;
};

int64_t moment(const date_parts& date, bool effective) {
  tm parts{};
  parts.tm_year = date.year - 1900;
  parts.tm_mon = date.month - 1;
  parts.tm_mday = date.day;
  return timegm(&parts) + (effective ? 0 : kDay - 1);
}

/// A date that was taken says the same in both of its forms and is in range.
void check_taken(const import_date& date, bool effective) {
  date_parts parts;
  char time[16] = {};
  FUZZ_CHECK(std::sscanf(date.text, "%d-%d-%d %15s", &parts.year, &parts.month, &parts.day, time) ==
             4);
  FUZZ_CHECK(std::strcmp(time, effective ? "00:00:00+00" : "23:59:59+00") == 0);
  FUZZ_CHECK(parts.year >= 2000 && parts.month <= 12 && parts.day <= 31);
  FUZZ_CHECK(date.epoch <= kNow + (effective ? 90 : 180) * kDay);
  // Months and days far below 0 take it to years that a moment cannot have.
  if (parts.month > -1'000'000 && parts.day > -1'000'000'000) {
    FUZZ_CHECK(date.epoch == moment(parts, effective));
  }
}

void check_refused(const std::string& refusal, const char* text) {
  constexpr std::size_t kShown = 29;
  FUZZ_CHECK(refusal.starts_with("Line 7 : "));
  FUZZ_CHECK(refusal.ends_with(", " + std::string(text).substr(0, kShown) + "\n"));
}

void check_cell(rate_date_reader& reader, column_kind kind, const char* text) {
  const bool effective = kind == column_kind::effective_date;
  import_date date;
  std::string refusal;
  if (!reader.read(kind, text, kLine, date, refusal)) {
    check_refused(refusal, text);
    return;
  }
  check_taken(date, effective);
  import_date again;
  FUZZ_CHECK(reader.read(kind, text, kLine, again, refusal));
  FUZZ_CHECK(again.text == date.text && again.epoch == date.epoch);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz_input input(data, size);
  const uint8_t choice = input.byte();
  const auto format = static_cast<date_format>(choice % 7);
  const auto kind = choice < 128 ? column_kind::effective_date : column_kind::end_date;
  rate_date_reader reader(format, kNow);
  while (!input.empty()) {
    const std::string cell = input.line();
    const auto copy = fuzz_copy(cell);
    (void)rate_date_format_index(copy.get());
    check_cell(reader, kind, copy.get());
  }
  return 0;
}
