/// The part of the daemon's record that a tool needs to read the daemon's configuration.
#pragma once

#include <memory>
#include <string>

#include "core/qvn_core_ctrl.h"

/// Makes the record and finds the configuration; there is one at a time, in the main thread.
class tool_core {
 public:
  /// `folder` is the daemon's or its conf folder; null: that of this program. Throws std::bad_alloc
  /// when memory runs out.
  explicit tool_core(const char* folder);
  ~tool_core() { g_core_ctrl = nullptr; }
  tool_core(const tool_core&) = delete;
  tool_core& operator=(const tool_core&) = delete;

 private:
  std::unique_ptr<qvn_core_ctrl> record_ = std::make_unique<qvn_core_ctrl>();
};
