/// A call record's line: found apart into columns where it lies, and put together again with some
/// columns replaced. Long runs of columns that stay are copied in one piece.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "rerate/cdr_columns.h"

class cdr_line {
 public:
  /// What split() needs for a line of so many bytes with so many columns.
  [[nodiscard]] static constexpr std::size_t room(std::size_t length, std::size_t columns) {
    return length + columns + 1 + kSlack;
  }

  /// Finds the columns of a line of `length` bytes. `memory` has the room that it needs and keeps
  /// the columns' texts; the line itself may go. As pg_row_csv_parse splits: at every comma, the
  /// last column up to the first line feed, further commas included; two double quotes alone are
  /// an empty column. A line that ends early has its line feed in the last column that it has, no
  /// matter what that is, and the others are empty.
  void split(const char* line, std::size_t length, std::size_t columns, char* memory);

  [[nodiscard]] std::string_view operator[](std::size_t column) const {
    return is_empty(column) ? std::string_view() : raw(column);
  }

  /// The most that join() writes with these texts, room to work included.
  [[nodiscard]] std::size_t joined_room(std::span<const std::string_view> texts) const;

  /// Writes the line of a CDR file to `out` and returns its end: an empty column or text as "NULL",
  /// "?" between columns, a line feed at the end. The texts take the place of the first columns of
  /// `replaced`, which are in ascending order.
  char* join(char* out, std::span<const cdr_column> replaced,
             std::span<const std::string_view> texts) const;

 private:
  static constexpr std::size_t kSlack = 64;  ///< bytes that may be touched beyond an end
  static constexpr std::size_t kBits = 64;   ///< of a word with a bit a column
  static constexpr std::size_t kWords = 3;

  [[nodiscard]] bool is_empty(std::size_t column) const {
    return (empty_[column / kBits] >> column % kBits & 1U) != 0;
  }
  [[nodiscard]] std::string_view raw(std::size_t column) const {
    return {text_ + begins_[column], begins_[column + 1] - begins_[column] - std::size_t{1}};
  }

  /// Copies the line and notes where its columns begin; returns the last one that it has.
  std::size_t copy_columns(const char* line, std::size_t length, char* memory);

  /// Notes the empty columns; those below `quotes_tested` also if they are two double quotes.
  void find_empty(std::size_t quotes_tested);

  const char* text_ = nullptr;  ///< as it goes to the file: "?" after a column, a line feed at last
  std::size_t columns_ = 0;
  /// Where each column begins, and where one after the last would; read four at a time.
  std::array<uint32_t, 136> begins_{};
  std::array<uint64_t, kWords> empty_{};
};
