/// The header of a rate deck, and the cells of its lines. Pure.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

/// Most cells of a line; what follows is dropped.
inline constexpr std::size_t kMaxCells = 255;

/// What separates them. It has no other meaning, not even between quotes.
inline constexpr char kCellSeparator = ',';

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

/// The kinds of the header's columns.
struct rate_header {
  std::array<column_kind, kMaxCells> kinds{};
  std::size_t count = 0;        ///< cells of the header, ignored ones included
  std::size_t code_column = 0;  ///< the last that holds the code, if there is one

  /// Whether the two required columns, code and effective date, are there.
  [[nodiscard]] bool valid() const;
};

[[nodiscard]] rate_header rate_header_parse(std::string_view line);

/// Splits a line; the cells found, without blanks around them. When there are more than fit, the
/// last one ends at its separator.
[[nodiscard]] std::span<const std::string_view> rate_line_split(
    std::string_view line, std::span<std::string_view, kMaxCells> cells);
