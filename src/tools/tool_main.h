/// What the command lines of the check tools have in common.
#pragma once

#include <cstdio>
#include <new>

#include "core/qvn_process.h"
#include "tools/tool_status.h"

inline tool_status tool_usage_error(const char* usage) {
  (void)std::fputs(usage, stderr);
  return kUnusable;
}

/// Answers the options that end a program at once: 'h', 'V', and whatever getopt does not know.
inline tool_status tool_answer(int letter, const char* program, const char* usage,
                               const char* help) {
  if (letter == 'h') {
    std::printf("%s\n%s", usage, help);
  } else if (letter == 'V') {
    std::printf("%s %s-%s\n", program, kVersionLabel, qvn_build_revision());
  } else {
    return tool_usage_error(usage);
  }
  return kNothingToSay;
}

/// Runs the program; kUnusable, with a line, when memory runs out or standard output cannot be
/// written to.
template <class Run>
tool_status tool_main(const char* program, Run run) {
  qvn_open_standard_descriptors();
  tool_status status = kUnusable;
  try {
    status = run();
  } catch (const std::bad_alloc&) {
    (void)std::fprintf(stderr, "%s: out of memory\n", program);
    return kUnusable;
  }
  const bool failed = std::ferror(stdout) != 0;
  if (std::fflush(stdout) != 0 || failed) {
    (void)std::fprintf(stderr, "%s: writing to standard output failed\n", program);
    return kUnusable;
  }
  return status;
}
