#include "support.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "base/qvn_log.h"
#include "core/qvn_core_ctrl.h"

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments);
int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
  setenv("TZ", "UTC0", 1);
  tzset();
  (void)qvn_log_set_level(kLogEmergency);
  g_core_ctrl = new qvn_core_ctrl;
  return 0;
}

void fuzz_fail(const char* promise, const char* file, int line) {
  (void)std::fprintf(stderr, "%s:%d: broken promise: %s\n", file, line, promise);
  std::abort();
}

std::unique_ptr<char[]> fuzz_copy(std::string_view text) {
  std::unique_ptr<char[]> copy(new char[text.size() + 1]);
  copy[text.copy(copy.get(), text.size())] = '\0';
  return copy;
}

uint8_t fuzz_input::byte() {
  const std::string_view one = take(1);
  return one.empty() ? uint8_t{0} : static_cast<uint8_t>(one.front());
}

std::string_view fuzz_input::take(std::size_t size) {
  const std::string_view taken = left_.substr(0, size);
  left_.remove_prefix(taken.size());
  return taken;
}

std::string_view fuzz_input::field(char separator) {
  const std::size_t end = left_.find(separator);
  if (end == std::string_view::npos) {
    return take(left_.size());
  }
  const std::string_view taken = take(end);
  left_.remove_prefix(1);
  return taken;
}

std::string fuzz_input::line() {
  return std::string(fuzz_before_nul(field('\n')));
}
