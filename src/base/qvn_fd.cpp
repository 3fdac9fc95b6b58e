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

bool qvn_fd_write(const qvn_fd& fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(fd.get(), bytes.data(), bytes.size());
    if (written >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

bool qvn_fd_copy(const qvn_fd& from, const qvn_fd& to) {
  char piece[65536];
  off_t at = 0;
  for (;;) {
    const ssize_t length = pread(from.get(), piece, sizeof piece, at);
    if (length <= 0) {
      return length == 0;
    }
    if (!qvn_fd_write(to, {piece, static_cast<std::size_t>(length)})) {
      return false;
    }
    at += length;
  }
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
