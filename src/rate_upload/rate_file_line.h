/// What a line of a rate deck may hold: the header's columns, the checks of each cell, and the
/// dates. Pure: values in, values and refusals out; no file, clock or database.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "rate_upload/import_record.h"

/// Most cells of a line; what follows is dropped.
inline constexpr std::size_t kMaxCells = 255;

/// What a column of the deck holds.
enum class column_kind : uint8_t {
  ignored = 0,
  zone = 1,
  interval = 2,
  seconds = 3,
  rate_type = 4,
  min_time = 5,
  grace_time = 6,
  code = 7,
  code_name = 8,
  country = 9,
  effective_date = 10,
  end_date = 11,
  rate = 12,
  setup_fee = 13,
  intra_rate = 14,
  inter_rate = 15,
  local_rate = 16,
  ocn = 17,
  lata = 18,
};

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

/// The kinds of the header's columns.
struct rate_header {
  std::array<column_kind, kMaxCells> kinds{};
  std::size_t count = 0;        ///< cells of the header, ignored ones included
  std::size_t code_column = 0;  ///< the last that holds the code, if there is one

  /// Whether the two required columns, code and effective date, are there.
  [[nodiscard]] bool valid() const;
};

[[nodiscard]] rate_header rate_header_parse(std::string_view line);

/// Splits a line at its commas; the cells found, without blanks around them. When there are more
/// than fit, the last one ends at its comma.
[[nodiscard]] std::span<const std::string_view> rate_line_split(
    std::string_view line, std::span<std::string_view, kMaxCells> cells);

/// Reads the dates of one deck. A deck has few dates, most often the same line after line: what was
/// read is remembered, and its text is shared by all its lines. One object a job; it owns the texts
/// of the dates that it gave out.
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

/// Checks the cells of a line in column order and reads them into `values`, whose texts point into
/// the line. False at the first failure, with the line's message in `refusal`. Throws
/// std::bad_alloc when memory runs out.
[[nodiscard]] bool rate_line_check(const rate_header& header,
                                   std::span<const std::string_view> cells, int line_number,
                                   rate_date_reader& dates, import_values& values,
                                   std::string& refusal);

/// What a refused line's message says of every such line: "code invalid" of
/// "Line 3 : code invalid, 44x". Part of the message.
[[nodiscard]] std::string_view rate_refusal_reason(std::string_view message);
