/// The dates of a rate deck. Pure.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "rate_upload/deck_header.h"
#include "rate_upload/import_record.h"

/// How the deck writes its dates.
enum class date_format : int32_t {
  mdy_slash = 0,
  ymd_dash = 1,
  dmy_dash = 2,
  mdy_dash = 3,
  dmy_slash = 4,
  ymd_slash = 5,
  unsupported = 6,
};

/// The format of a text such as "MM/DD/YYYY", whatever its case.
[[nodiscard]] date_format rate_date_format_index(const char* text);

/// Reads the dates of one deck. A deck has few dates, most often the same line after line: what was
/// read is remembered, and its text is shared by all its lines. One object per job; it owns the
/// texts of the dates that it gave out.
class rate_date_reader {
 public:
  /// `now` is the time against which dates too far ahead are refused.
  rate_date_reader(date_format format, int64_t now) : format_(format), now_(now) {}

  /// Reads an effective or end date. Without a date, `refusal` holds the line's message. Throws
  /// std::bad_alloc when memory runs out.
  [[nodiscard]] bool read(column_kind kind, std::string_view text, int line_number,
                          import_date& date, std::string& refusal);

 private:
  using known_dates = std::map<std::string, import_date, std::less<>>;

  /// The good cells of a column.
  struct memory {
    known_dates known;
    const known_dates::value_type* last = nullptr;  ///< the one of the line before
  };

  [[nodiscard]] bool parse(column_kind kind, std::string_view text, int line_number,
                           import_date& date, std::string& refusal);

  date_format format_;
  int64_t now_;
  memory effective_;
  memory end_;
  std::deque<std::string> texts_;  ///< what the dates point to; addresses stay
};
