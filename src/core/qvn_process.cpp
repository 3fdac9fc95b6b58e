#include "core/qvn_process.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <string_view>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/qvn_file.h"
#include "base/qvn_log.h"
#include "base/qvn_shell.h"
#include "base/qvn_text.h"
#include "cli/qvn_cli_client.h"
#include "core/qvn_build_info.h"
#include "core/qvn_core.h"
#include "core/qvn_core_ctrl.h"
#include "core/qvn_settings.h"

namespace {

constexpr const char* kLogSource = "main";

constexpr const char* kOwnersNotice = "all rights reserved by its owner";
constexpr int kPidFileTrouble = 1;  // exit status
constexpr mode_t kPidFileMode = 0644;

int32_t g_pid = 0;
int32_t g_lock_fd = -1;

constexpr int kHandledSignals[] = {SIGTERM, SIGHUP, SIGINT};

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

[[noreturn]] void exit_with_fork_error(const char* step) {
  const int error = errno;
  (void)std::fprintf(stderr, "Error Backgrounding (%s)! %d - %s\n", step, error,
                     std::strerror(error));
  std::exit(EXIT_SUCCESS);
}

/// Forks with empty stdio buffers, so that no text is printed by two processes.
pid_t fork_flushed(const char* step) {
  (void)std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid < 0) {
    exit_with_fork_error(step);
  }
  return pid;
}

void redirect_to_null(int descriptor, int flags) {
  const int null_file = open("/dev/null", flags);
  if (null_file >= 0 && null_file != descriptor) {
    (void)dup2(null_file, descriptor);
    (void)close(null_file);
  }
}

sigset_t handled_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : kHandledSignals) {
    sigaddset(&set, number);
  }
  return set;
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

/// Whatever still blocks then, the process ends.
void limit_time_to_end() {
  constexpr unsigned kPatienceSeconds = 1;
  (void)std::signal(SIGALRM, [](int) { _exit(EXIT_SUCCESS); });
  (void)alarm(kPatienceSeconds);
}

/// Runs in the main thread while it waits in the run loop and holds no lock. SIGTERM ends the
/// process with status 0 whatever its threads are doing: no destructor and no exit handler of a
/// library runs under them.
void qvn_signal_proc(int number) {
  constexpr std::chrono::milliseconds kLogPatience{500};
  if (getpid() != g_pid) {
    std::printf("receive signal in %d pid, %s pid as %d\n", getpid(), kProgramName, g_pid);
    return;
  }
  if (number != SIGTERM) {
    return;
  }
  limit_time_to_end();
  (void)qvn_log_drain(kLogPatience / 2);  // a full queue would drop the closing lines
  QVN_LOG(kLogNotice, "Receiving the termination signal, the %s start exit...\n", kProgramName);
  (void)qvn_core_set_exit();
  (void)qvn_log_drain(kLogPatience);
  (void)std::fflush(nullptr);
  _exit(EXIT_SUCCESS);
}

}  // namespace

const char* qvn_build_revision() {
  return QVN_BUILD_REVISION;
}
const char* qvn_build_date() {
  return QVN_BUILD_DATE;
}

void show_version() {
  std::printf("%s Version: %s-%s\n", kProgramName, kVersionLabel, qvn_build_revision());
  std::printf("%s Compile Date : %s\n", kProgramName, qvn_build_date());
}

void show_usage() {
  std::printf("%s %s, %s\n", kProgramName, kVersionLabel, kOwnersNotice);
  std::printf("Usage: %s [OPTIONS]\n", kProgramName);
  std::puts("Valid Options:");
  std::puts("   -V[v]           Display version number and exit");
  std::puts("   -H[h]           His help screen");
  std::puts("   -nf             No forking");
  std::printf("   -kill           Shutdown the %s\n", kProgramName);
  std::puts("   -r              Connect to qvn_web_helper on this machine");
  std::puts("");
}

void qvn_open_standard_descriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) < 0) {
      redirect_to_null(descriptor, descriptor == STDIN_FILENO ? O_RDONLY : O_WRONLY);
    }
  }
}

void qvn_enable_coredump() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
    std::printf("Unable to check file descriptor limit: %s\n", std::strerror(errno));
    return;
  }
  limit.rlim_cur = RLIM_INFINITY;
  limit.rlim_max = RLIM_INFINITY;
  if (setrlimit(RLIMIT_CORE, &limit) != 0) {
    std::printf("Unable to disable core size resource limit: %s\n", std::strerror(errno));
  }
}

std::string qvn_get_run_path() {
  char link[64];
  (void)std::snprintf(link, sizeof link, "/proc/%d/exe", getpid());
  char path[1024] = {};
  const ssize_t length = readlink(link, path, sizeof path - 1);
  char* const last_slash = std::strrchr(path, '/');
  if (length < 0 || !last_slash) {
    return ".";
  }
  *last_slash = '\0';
  return path;
}

int32_t qvn_core_set_path() {
  try {
    g_core_ctrl->install_dir = qvn_get_run_path();
    g_core_ctrl->conf_dir = g_core_ctrl->install_dir + "/conf/";
    g_core_ctrl->log_dir = g_core_ctrl->install_dir + "/log/";
    g_core_ctrl->run_dir = g_core_ctrl->install_dir + "/run/";
  } catch (const std::bad_alloc&) {
    return -1;
  }
  return 0;
}

void qvn_register_signal_handle() {
  const sigset_t handled = handled_signals();
  (void)pthread_sigmask(SIG_BLOCK, &handled, nullptr);
  for (const int number : kHandledSignals) {
    (void)std::signal(number, qvn_signal_proc);
  }
}

void system_signal_reset() {
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);
}

sigset_t qvn_run_loop_mask() {
  sigset_t mask;
  (void)pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  for (const int number : kHandledSignals) {
    sigdelset(&mask, number);
  }
  sigdelset(&mask, SIGALRM);  // see limit_time_to_end
  return mask;
}

void daemonize() {
  if (fork_flushed("fork") > 0) {
    std::exit(EXIT_SUCCESS);
  }
  if (setsid() < 0) {
    exit_with_fork_error("setsid");
  }
  const pid_t daemon_pid = fork_flushed("fork2");
  if (daemon_pid > 0) {
    (void)std::fprintf(stderr, "%d Backgrounding.\n", daemon_pid);
    std::exit(EXIT_SUCCESS);
  }
  redirect_to_null(STDIN_FILENO, O_RDONLY);
  redirect_to_null(STDOUT_FILENO, O_WRONLY);
  redirect_to_null(STDERR_FILENO, O_WRONLY);
}

void qvn_remember_pid() {
  g_pid = getpid();
}

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
  (void)dprintf(g_lock_fd, "%d\n", g_pid);  // on a full disk only -kill misses it
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

void qvn_core_remote_connection() {
  (void)std::setvbuf(stdout, nullptr, _IOLBF, 0);  // lines are seen at once, also through a pipe
  (void)qvn_load_cli_config();                     // what is missing stays zero or empty
  // Whatever happens has been told, and the end is the same.
  (void)qvn_cli_client_init();
  (void)qvn_cli_client_run();
  (void)qvn_cli_client_exit();
  (void)qvn_cli_client_uninit();
  qvn_core_free();
  std::exit(EXIT_SUCCESS);
}
