// Preloaded into a daemon, lets five minutes pass for its log thread at each look at the clock: the
// log file is rotated whenever a line has been written that reaches the limit.
#include <cstring>
#include <ctime>
#include <sys/prctl.h>

namespace {

bool in_log_thread() {
  char name[16] = "";
  prctl(PR_GET_NAME, name);
  return std::strcmp(name, "qvn_log") == 0;
}

}  // namespace

extern "C" time_t time(time_t* result) noexcept {
  static thread_local time_t ahead = 0;
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (in_log_thread())
    now.tv_sec += ahead += 301;
  if (result != nullptr)
    *result = now.tv_sec;
  return now.tv_sec;
}
