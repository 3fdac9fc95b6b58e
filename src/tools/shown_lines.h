/// Texts from outside as they may go to a terminal: a deck comes from somebody else. Main thread.
#pragma once

#include <array>
#include <cstdio>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "base/qvn_file.h"

/// The text with its control characters masked.
[[nodiscard]] std::string shown(std::string_view text);

/// A stream whose lines go to standard output as they may be shown there; not before it is closed
/// is it done.
class shown_lines {
 public:
  /// Throws std::bad_alloc when memory runs out.
  shown_lines();

  [[nodiscard]] std::FILE* stream() const { return stream_.get(); }

 private:
  static ssize_t take(void* self, const char* bytes, std::size_t size) noexcept;
  void add(char byte);

  std::array<char, 4096> line_;  ///< more than a message has
  std::size_t length_ = 0;
  qvn_file stream_;
};
