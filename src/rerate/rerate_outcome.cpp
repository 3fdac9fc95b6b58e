#include "rerate/rerate_outcome.h"

#include <cstdarg>
#include <cstdio>

#include "base/qvn_log.h"
#include "base/qvn_text.h"
#include "db/qvn_db_job.h"

rerate_outcome rerate_fail(rerate_error error, const char* format, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  (void)std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  rerate_outcome outcome{error};
  (void)qvn_cut(text, sizeof outcome.text - 1).copy(outcome.text, sizeof outcome.text);
  return outcome;
}

rerate_outcome rerate_fail_without_memory(uint32_t id, int line) {
  (void)qvn_log_print("qvn_rerate", line, kLogError, 0, "Alloc memory for rereta task %u failed\n",
                      id);
  return rerate_fail(rerate_error::system, kMemoryShortage);
}
