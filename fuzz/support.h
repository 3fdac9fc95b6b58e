/// What the fuzz targets share: how they read their input, report a broken promise, and give
/// product code files that live in memory.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

/// Ends the run as a finding when a promise is broken.
#define FUZZ_CHECK(promise) \
  ((promise) ? static_cast<void>(0) : fuzz_fail(#promise, __FILE__, __LINE__))
[[noreturn]] void fuzz_fail(const char* promise, const char* file, int line);

/// A NUL-terminated copy in a block of exactly its size: the sanitizer sees the first byte too far.
[[nodiscard]] std::unique_ptr<char[]> fuzz_copy(std::string_view text);

/// Reads the bytes of an input from front to back; past the end there are zeros and empty texts.
class fuzz_input {
 public:
  fuzz_input(const uint8_t* data, std::size_t size)
      : left_(reinterpret_cast<const char*>(data), size) {}

  [[nodiscard]] bool empty() const { return left_.empty(); }
  [[nodiscard]] std::string_view rest() const { return left_; }
  uint8_t byte();
  std::string_view take(std::size_t size);
  /// Up to the next separator, which is taken with it, or all that is left.
  std::string_view field(char separator);
  /// Up to the next line feed, cut at a NUL as any text of the daemon.
  std::string line();

  /// A number made of the next bytes.
  template <class Number>
  Number number() {
    Number value{};
    const std::string_view bytes = take(sizeof value);
    std::memcpy(&value, bytes.data(), bytes.size());
    return value;
  }

 private:
  std::string_view left_;
};

/// The part of a text before its first NUL.
[[nodiscard]] inline std::string_view fuzz_before_nul(std::string_view text) {
  return text.substr(0, text.find('\0'));
}

/// A target's own preparations before its first run, if it has any. The core record is there by
/// then, with an empty database table; nothing is logged, and local time is UTC.
[[gnu::weak]] void fuzz_prepare();

/// The folder whose files live in memory.
inline constexpr const char* kFuzzFolder = "fuzz:";

/// What every file of the folder holds when it is read; the bytes stay the caller's.
void fuzz_set_content(std::string_view content);

/// A stream whose bytes go to the function, piece by piece.
using fuzz_write_fn = void (*)(std::string_view piece);
[[nodiscard]] std::FILE* fuzz_open_writer(fuzz_write_fn writer);
