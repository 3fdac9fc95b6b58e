#include "rate_upload/deck_lines.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace {

constexpr std::size_t kPieceSize = 1023;
constexpr std::size_t kBufferSize = std::size_t{256} * 1024;

/// The text up to the first such character, or all of it.
std::string_view before(std::string_view text, char end) {
  return text.substr(0, text.find(end));
}

}  // namespace

deck_lines::deck_lines(int descriptor)
    : descriptor_(descriptor),
      buffer_(std::make_unique_for_overwrite<char[]>(kBufferSize)),
      begin_(buffer_.get()),
      end_(begin_) {}

bool deck_lines::next(std::string_view& line) {
  while (const std::size_t size = piece_size()) {
    ++number_;
    const bool has_end = begin_[size - 1] == '\n';
    raw_ = {begin_, size};
    line = before(before(raw_.substr(0, size - (has_end ? 1U : 0U)), '\r'), '\0');
    begin_ += size;
    if (!line.empty()) {
      return true;
    }
  }
  return false;
}

std::string_view deck_lines::ahead() const {
  constexpr std::size_t kLooked = 64;
  return std::string_view(begin_, end_).substr(0, kLooked);
}

/// Bytes of the next piece, its line end included; 0 at the end. What stands before a failure to
/// read is not a line.
std::size_t deck_lines::piece_size() {
  for (;;) {
    const std::string_view left(begin_, end_);
    const std::size_t line_end = left.substr(0, kPieceSize).find('\n');
    if (line_end != std::string_view::npos) {
      return line_end + 1;
    }
    if (left.size() >= kPieceSize) {
      return kPieceSize;
    }
    if (ended_) {
      return failed_ ? 0 : left.size();
    }
    fill();
  }
}

void deck_lines::fill() {
  const auto left = static_cast<std::size_t>(end_ - begin_);
  end_ = buffer_.get() + kPieceSize;
  begin_ = static_cast<char*>(std::memmove(end_ - left, begin_, left));
  ssize_t count = 0;
  do {
    count = read(descriptor_, end_, kBufferSize - kPieceSize);
  } while (count < 0 && errno == EINTR);
  failed_ = count < 0;
  ended_ = count <= 0;
  end_ += std::max(count, ssize_t{0});
}
