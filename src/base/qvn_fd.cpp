#include "base/qvn_fd.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "base/qvn_time.h"

void qvn_fd::reset(int fd) {
  if (fd_ >= 0) {
    (void)close(fd_);
  }
  fd_ = fd;
}

qvn_fd qvn_fd_look_at(int folder, const char* name, int flags) {
  return qvn_fd(openat(folder, name, O_PATH | O_CLOEXEC | flags));
}

qvn_fd qvn_fd_open_seen(const qvn_fd& seen, int flags) {
  constexpr int kTries = 100;
  constexpr uint32_t kPauseMilliseconds = 100;
  char path[64];
  (void)std::snprintf(path, sizeof path, "/proc/self/fd/%d", seen.get());
  for (int i = 1;; ++i) {
    // Without O_NONBLOCK the wait for a lease would be the system's, which may be set to any
    // length.
    qvn_fd opened(open(path, flags | O_NONBLOCK | O_CLOEXEC));
    if (opened.is_open() || errno != EWOULDBLOCK || i == kTries) {
      return opened;
    }
    qvn_msleep(kPauseMilliseconds);
  }
}
