/// The pid file: its lock keeps a second daemon from running in an installation, its line names the
/// daemon that -kill ends. Main thread, before any other thread exists. Messages go to standard
/// output.
#pragma once

/// End the process with status 0 and a message when another instance holds the lock.
/// qvn_lock_running takes it for the life of the process and writes the pid; it ends with status 1
/// when the file cannot be opened. After daemonising.
void qvn_already_running();
void qvn_lock_running();

/// Sends SIGTERM to the daemon that the file names and ends this process with status 0. A first
/// line that is anything but a process id above 1 names none.
[[noreturn]] void qvn_core_kill();
