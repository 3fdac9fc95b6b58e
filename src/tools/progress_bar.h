/// A bar on standard error that shows how much of a large file has been read. Main thread.
#pragma once

#include <cstdint>
#include <cstdio>

class progress_bar {
 public:
  /// Shows nothing unless standard error is a terminal and `file` a large plain file.
  explicit progress_bar(std::FILE* file);
  ~progress_bar() { hide(); }
  progress_bar(const progress_bar&) = delete;
  progress_bar& operator=(const progress_bar&) = delete;

  /// A line has been read: redraws the bar when it has grown.
  void step();

  /// Takes the bar off the screen, so that a line can be written in its place.
  void hide();

 private:
  std::FILE* file_;
  int64_t size_ = 0;  ///< bytes; 0: no bar
  uint32_t lines_ = 0;
  int64_t shown_percent_ = -1;  ///< -1: hidden
};
