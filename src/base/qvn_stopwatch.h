/// Measures the phases of a job.
#pragma once

#include <cstdint>
#include <ctime>

/// Adds the whole seconds from here to the end of the scope to a total, on every way out.
class qvn_stopwatch {
 public:
  explicit qvn_stopwatch(int64_t& total) : total_(total) {}
  ~qvn_stopwatch() { total_ += elapsed(); }
  qvn_stopwatch(const qvn_stopwatch&) = delete;
  qvn_stopwatch& operator=(const qvn_stopwatch&) = delete;

  /// Seconds until now.
  [[nodiscard]] int64_t elapsed() const { return std::time(nullptr) - start_; }

 private:
  int64_t& total_;
  const int64_t start_ = std::time(nullptr);
};
