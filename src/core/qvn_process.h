/// The process itself: command line answers, installation paths, daemonising, signals and core
/// dumps. Main thread, before any other thread exists. Nothing is logged here but by the signal
/// handler: messages go to standard output, those of daemonising to standard error.
#pragma once

#include <csignal>
#include <cstdint>
#include <string>

void show_version();
void show_usage();

/// "branch-revision, commit time" and "Month day year time" of this build.
[[nodiscard]] const char* qvn_build_revision();
[[nodiscard]] const char* qvn_build_date();
inline constexpr const char* kVersionLabel = "V1-Free";

/// Opens /dev/null on whichever of the descriptors 0 to 2 is closed, so that no file of the daemon
/// lands there.
void qvn_open_standard_descriptors();

/// Lets the kernel write core files of any size.
void qvn_enable_coredump();

/// The directory of the executable, without a trailing slash; "." when it cannot be found.
[[nodiscard]] std::string qvn_get_run_path();

/// Fills the three directories of the core record. 0, or -1 when memory runs out.
int32_t qvn_core_set_path();

/// Blocks the signals that the run loop handles and installs their handler. Threads started later
/// inherit the mask, so the handler runs in the main thread alone.
void qvn_register_signal_handle();

/// Ignores SIGPIPE and SIGXFSZ: a peer that went away, or a file that has reached the limit of its
/// size, is seen in the result of the call.
void system_signal_reset();

/// The mask that the run loop waits with: the present one, without the signals that end the daemon
/// or limit the time that this takes, whatever its starter has blocked. Before
/// qvn_register_signal_handle.
[[nodiscard]] sigset_t qvn_run_loop_mask();

/// Detaches the process from its terminal and session. Returns in the daemon only; every other
/// process, and every failure, ends here with status 0.
void daemonize();

/// Remembers the process id for the signal handler. After daemonising.
void qvn_remember_pid();
