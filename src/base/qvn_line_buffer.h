/// From received bytes to complete lines: what the console's login, its connections and its client
/// have in common. No socket and no log, so that tests and the fuzzer reach all of it.
///
/// A line ends in "\r\n", looked for by length. A line or an unfinished rest that is too long is
/// handed over as invalid and dropped, but for half of a line end; what then comes up to the next
/// line end counts as a line again. A NUL ends a line's text, not the line. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

class qvn_line_buffer {
 public:
  static constexpr std::size_t kCapacity = 4096;

  /// How long a line may get, in characters without its end.
  struct limits {
    std::size_t line;  ///< from this length on a line is invalid
    std::size_t rest;  ///< from this length on an unfinished rest is
  };

  /// The largest read whose bytes always fit after a kept rest and half of a line end.
  static constexpr std::size_t room(const limits& allowed) { return kCapacity - allowed.rest; }

  /// Takes received bytes, at most room() of them, and calls `on_line(text)` for each complete line
  /// and `on_invalid(text)` for what is too long, in order. The texts are NUL-terminated, valid
  /// during the call, and may be written to.
  template <class OnLine, class OnInvalid>
  void feed(std::string_view received, const limits& allowed, OnLine on_line, OnInvalid on_invalid);

 private:
  static constexpr std::string_view kLineEnd = "\r\n";

  uint16_t length_ = 0;
  char bytes_[kCapacity + 1] = {};
};

template <class OnLine, class OnInvalid>
void qvn_line_buffer::feed(std::string_view received, const limits& allowed, OnLine on_line,
                           OnInvalid on_invalid) {
  const std::size_t taken = received.copy(bytes_ + length_, kCapacity - length_);
  const std::size_t filled = length_ + taken;
  std::size_t begin = 0;
  for (;;) {
    const std::string_view left(bytes_ + begin, filled - begin);
    const std::size_t end = left.find(kLineEnd);
    if (end == std::string_view::npos) {
      break;
    }
    bytes_[begin + end] = '\0';
    if (end < allowed.line) {
      on_line(bytes_ + begin);
    } else {
      on_invalid(bytes_ + begin);
    }
    begin += end + kLineEnd.size();
  }
  // A carriage return may be half of a line end and does not count.
  const bool half_end = filled > begin && bytes_[filled - 1] == kLineEnd.front();
  const std::size_t text_end = filled - (half_end ? 1 : 0);
  if (text_end - begin >= allowed.rest) {
    bytes_[text_end] = '\0';
    on_invalid(bytes_ + begin);
    bytes_[text_end] = kLineEnd.front();
    begin = text_end;
  }
  std::memmove(bytes_, bytes_ + begin, filled - begin);
  length_ = static_cast<uint16_t>(filled - begin);
}
