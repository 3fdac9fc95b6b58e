#include "core/qvn_pid_file.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "base/qvn_file.h"
#include "base/qvn_shell.h"
#include "core/qvn_core.h"
#include "core/qvn_core_ctrl.h"

namespace {

constexpr int kPidFileTrouble = 1;  // exit status
constexpr mode_t kPidFileMode = 0644;

int32_t g_lock_fd = -1;

struct pid_file_path {
  char text[256];
};

pid_file_path make_pid_file_path() {
  pid_file_path path{};
  (void)std::snprintf(path.text, sizeof path.text, "%s/run/%s.pid",
                      g_core_ctrl->install_dir.c_str(), kProgramName);
  return path;
}

void close_lock_file() {
  if (g_lock_fd > 0) {
    (void)close(g_lock_fd);
    g_lock_fd = -1;
  }
}

/// Write-locks the whole open pid file. When the lock is refused, says so and ends the process.
void take_lock_or_exit() {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  if (fcntl(g_lock_fd, F_SETLK, &lock) == 0) {
    return;
  }
  if (errno == EAGAIN || errno == EACCES) {
    std::printf("%s already running...\n", kProgramName);
  } else {
    std::puts("Unable to lock");
  }
  close_lock_file();
  std::exit(EXIT_SUCCESS);
}

/// The pid file's first line with its end; empty when there is none.
std::string read_pid_line() {
  const qvn_file file(std::fopen(make_pid_file_path().text, "re"));
  char bytes[255];
  const std::string_view text(bytes, file ? std::fread(bytes, 1, sizeof bytes, file.get()) : 0);
  const std::size_t end = text.find('\n');
  return std::string(text.substr(0, end == std::string_view::npos ? end : end + 1));
}

/// Whether the line is the id of a process above 1 and nothing else: a shell is going to read it,
/// and kill takes 0 and less for whole groups.
bool names_one_process(std::string_view line) {
  const std::string_view digits = line.substr(0, line.find('\n'));
  pid_t pid = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), pid);
  return error == std::errc() && end == digits.data() + digits.size() && pid > 1;
}

}  // namespace

void qvn_already_running() {
  g_lock_fd = open(make_pid_file_path().text, O_RDWR | O_CLOEXEC);
  if (g_lock_fd < 0) {
    return;  // missing; for any other reason qvn_lock_running will report it
  }
  take_lock_or_exit();
  close_lock_file();
}

void qvn_lock_running() {
  g_lock_fd = open(make_pid_file_path().text, O_RDWR | O_CREAT | O_CLOEXEC, kPidFileMode);
  if (g_lock_fd < 0) {
    std::printf("Open %s.pid file failure\n", kProgramName);
    std::exit(kPidFileTrouble);
  }
  take_lock_or_exit();
  (void)fstat(g_lock_fd, &g_core_ctrl->pid_file);
  (void)dprintf(g_lock_fd, "%d\n", getpid());  // on a full disk only -kill misses it
}

void qvn_core_kill() {
  const std::string line = read_pid_line();
  if (!names_one_process(line)) {
    std::exit(EXIT_SUCCESS);
  }
  (void)qvn_shell("kill " + line);  // the shell says what went wrong
  qvn_core_uninit();
  std::exit(EXIT_SUCCESS);
}
