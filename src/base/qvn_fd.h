/// Owned descriptors, and the way to open a file that somebody else has named: look first, then
/// open what was looked at. Any thread.
///
/// Looking has no effect on the file: it waits for no writer of a pipe, wakes no device, and drops
/// none of the locks that this process holds on the file, as closing an ordinary descriptor does
/// (fcntl(2)).
#pragma once

#include <string_view>
#include <utility>

/// An owned descriptor, or -1 for none.
class qvn_fd {
 public:
  constexpr qvn_fd() = default;
  explicit constexpr qvn_fd(int fd) : fd_(fd) {}
  ~qvn_fd() { reset(); }
  qvn_fd(qvn_fd&& other) noexcept : fd_(other.release()) {}
  qvn_fd& operator=(qvn_fd&& other) noexcept {
    reset(other.release());
    return *this;
  }

  [[nodiscard]] int get() const { return fd_; }
  [[nodiscard]] bool is_open() const { return fd_ >= 0; }
  void reset(int fd = -1);
  [[nodiscard]] int release() { return std::exchange(fd_, -1); }

 private:
  int fd_ = -1;
};

/// Writes all bytes where the descriptor stands. False, with errno, when not all of them got there.
[[nodiscard]] bool qvn_fd_write(const qvn_fd& fd, std::string_view bytes);

/// Writes all bytes of a file, from its beginning, where `to` stands. False, with errno, when not
/// all of them got there.
[[nodiscard]] bool qvn_fd_copy(const qvn_fd& from, const qvn_fd& to);

/// Looks at the file of that name, below the open `folder` or, with AT_FDCWD, anywhere. `flags` may
/// add O_NOFOLLOW. The descriptor is good for fstat and qvn_fd_open_seen alone; none, with errno,
/// when there is no such file.
[[nodiscard]] qvn_fd qvn_fd_look_at(int folder, const char* name, int flags = 0);

/// Opens the file that was looked at, wherever its name leads by now, close-on-exec. A file that
/// another process holds a lease on is waited for, ten seconds at most. None, with errno, on
/// failure.
[[nodiscard]] qvn_fd qvn_fd_open_seen(const qvn_fd& seen, int flags);
