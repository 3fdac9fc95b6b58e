/// What the daemon's code logs while a tool runs it: why the server refused a statement.
#pragma once

#include <string>

#include "base/qvn_fd.h"

/// Keeps the warnings and errors that are logged as long as it lives. One at a time, in the main
/// thread.
class tool_log {
 public:
  tool_log();
  ~tool_log();
  tool_log(const tool_log&) = delete;
  tool_log& operator=(const tool_log&) = delete;

  /// The lines so far, each handed out once. Throws std::bad_alloc when memory runs out.
  [[nodiscard]] std::string take();

 private:
  qvn_fd in_;  ///< bound to the log
  qvn_fd out_;
};
