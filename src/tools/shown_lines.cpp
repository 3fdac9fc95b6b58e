#include "tools/shown_lines.h"

#include <new>
#include <span>

#include "base/qvn_text.h"

std::string shown(std::string_view text) {
  std::string copy(text);
  qvn_mask_controls(copy);
  return copy;
}

shown_lines::shown_lines() : stream_(fopencookie(this, "w", {nullptr, take, nullptr, nullptr})) {
  if (!stream_) {
    throw std::bad_alloc();
  }
  (void)std::setvbuf(stream_.get(), nullptr, _IOLBF, 0);
}

ssize_t shown_lines::take(void* self, const char* bytes, std::size_t size) noexcept {
  for (const char byte : std::string_view(bytes, size)) {
    static_cast<shown_lines*>(self)->add(byte);
  }
  return static_cast<ssize_t>(size);
}

void shown_lines::add(char byte) {
  line_[length_++] = byte;
  if (byte == '\n' || length_ == line_.size()) {
    qvn_mask_controls(std::span(line_).first(length_), "\t\n");
    (void)std::fwrite(line_.data(), 1, length_, stdout);
    length_ = 0;
  }
}
