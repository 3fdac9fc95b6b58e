/// What the fuzz targets share: how they read their input and report a broken promise. They run
/// with a core record, without a log, and in UTC.
#pragma once

#include <cstdint>
#include <cstring>
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
  explicit fuzz_input(std::string_view text) : left_(text) {}
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

 private:
  std::string_view left_;
};

/// The part of a text before its first NUL.
[[nodiscard]] inline std::string_view fuzz_before_nul(std::string_view text) {
  return text.substr(0, text.find('\0'));
}
