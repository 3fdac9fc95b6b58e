/// The lines of a deck, in pieces of 1,023 bytes where they are longer. Belongs to the thread that
/// reads the deck.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

class deck_lines {
 public:
  /// The descriptor is the caller's and read from where it stands. Throws std::bad_alloc when
  /// memory runs out.
  explicit deck_lines(int descriptor);

  /// The next line that is not empty, up to its first CR, LF or NUL; valid until the next call.
  /// False at the end, and where the deck cannot be read any further.
  [[nodiscard]] bool next(std::string_view& line);

  /// That line as it stands in the deck, with its line end; valid as long.
  [[nodiscard]] std::string_view raw() const { return raw_; }

  /// The first bytes after that line, as far as they have been read.
  [[nodiscard]] std::string_view ahead() const;

  /// The number of that line: all are counted, empty ones and pieces too, from 1.
  [[nodiscard]] int number() const { return number_; }

  /// Whether it ended as it could not be read.
  [[nodiscard]] bool failed() const { return failed_; }

 private:
  std::size_t piece_size();
  void fill();

  int descriptor_;
  int number_ = 0;
  bool ended_ = false;
  bool failed_ = false;
  std::unique_ptr<char[]> buffer_;
  char* begin_;  ///< what has been read and not yet given out
  char* end_;
  std::string_view raw_;
};
