#include "core/qvn_process.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/resource.h>
#include <unistd.h>

#include "base/qvn_log.h"
#include "core/qvn_build_info.h"
#include "core/qvn_core.h"
#include "core/qvn_core_ctrl.h"

namespace {

constexpr const char* kLogSource = "main";

constexpr const char* kOwnersNotice = "all rights reserved by its owner";

int32_t g_pid = 0;

constexpr int kHandledSignals[] = {SIGTERM, SIGHUP, SIGINT};

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
  } catch (const std::bad_alloc&) {
    return -1;
  }
  return 0;
}

void qvn_register_signal_handle() {
  sigset_t handled;
  sigemptyset(&handled);
  for (const int number : kHandledSignals) {
    sigaddset(&handled, number);
  }
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
