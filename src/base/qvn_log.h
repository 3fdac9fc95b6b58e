/// The one way to report. Any thread formats a line and appends it to a queue; one log thread
/// writes each line to the log file (or to standard error in the foreground) and to the bound
/// loggers, and rotates the file.
///
///     2024-03-05 09:15:00  [NOTICE] qvn_core:42 Start running...
///
/// Callers never touch the file. A filtered-out line costs one comparison; when 100,001 lines wait,
/// further ones are dropped without a word. The file is flushed after every line.
///
/// Locks: g_log_mutex guards the queue; g_log_binding_mutes guards the bound loggers;
/// g_log_file_mutex guards the stream and its name. They are never held together, and nothing else
/// is taken while one is held. Level, size, file and time cache are safe to use from any thread.
/// Every function works before qvn_log_init and after qvn_log_uninit; lines are then kept in the
/// queue, unseen, and the next qvn_log_init drops them. The daemon itself neither binds loggers nor
/// calls qvn_log_file_reopen.
#pragma once

#include <chrono>
#include <cstdint>

/// Severities; a smaller value is more severe.
enum qvn_log_level : uint32_t {
  kLogEmergency = 0,
  kLogAlert = 1,
  kLogCritical = 2,
  kLogError = 3,
  kLogWarning = 4,
  kLogNotice = 5,
  kLogInfo = 6,
  kLogDebug = 7,
};

/// Logs with the file's own module word, a constant `kLogSource` of the calling file, and this
/// line.
#define QVN_LOG(level, ...) \
  static_cast<void>(qvn_log_print(kLogSource, __LINE__, (level), 0, __VA_ARGS__))

/// Prepares the module (everything passes until a level is set) and starts the log thread. Called
/// once, by the main thread, before any other thread; does nothing while the log thread runs.
/// Returns 0; without a log thread, which is reported on standard error, lines stay in the queue.
int32_t qvn_log_init();

/// Opens the file for appending, chooses it (or standard error when `foreground` is 1; the file is
/// opened all the same) as the sink and sets the level. Main thread. 0, also without a path; -2
/// when a file is open already, which stays; -3 when it cannot be opened: standard error is chosen
/// all the same. A file that is moved or removed later is made again at the next size check.
int32_t qvn_log_file_open(const char* path, uint32_t level, uint8_t foreground);

/// Closes the open file and opens `path` for appending in its place. 0, also without a path or an
/// open file; -3 when the path cannot be opened, and there is no file then.
int32_t qvn_log_file_reopen(const char* path);

/// Closes the file if one is open. Returns 0.
int32_t qvn_log_file_close();

/// Takes a level of 0 to 7 (a larger one changes nothing) and, in both cases, logs the change.
/// Returns 0.
int32_t qvn_log_set_level(uint32_t level);

/// Takes the size limit of the log file in bytes and logs it; 0 is ignored.
void qvn_log_set_size(uint32_t size);

/// Queues one line: time, level, `file`:`line`, the formatted message (the caller's format brings
/// the line feed). Lines are cut at 2,047 characters. `force` 1 passes every level filter. Returns
/// 0 when queued, -1 when filtered out or the queue is full, -2 when memory runs out.
[[gnu::format(printf, 5, 6)]] int32_t qvn_log_print(const char* file, int line, uint32_t level,
                                                    uint8_t force, const char* format, ...);

/// Queues a ready-made text of less than 2,048 bytes as it is, at level DEBUG with force 1. Returns
/// as qvn_log_print.
int32_t qvn_log_print_content(const char* text);

/// Lets the socket `fd` receive a copy of each line up to `level`; a line that the socket cannot
/// take at once is lost to it. The descriptor stays the caller's, who unbinds it before closing it.
/// 0; -1, logged, for a level above 7, a negative descriptor or no memory.
int32_t qvn_log_add_bind_logger(int32_t fd, uint32_t level);

/// Takes the first bound logger with that descriptor off the list; 0 also when there is none, -1,
/// logged, for a negative descriptor.
int32_t qvn_log_add_unbind_logger(int32_t fd);

/// Sets the level of the first bound logger with that descriptor; 0 also when there is none, -1,
/// logged, for a level above 7 or a negative descriptor.
int32_t qvn_log_bind_logger_set_level(int32_t fd, uint32_t level);

/// Waits until every line queued so far has reached the sinks, at most `timeout`. Returns whether
/// it did. Safe in the SIGTERM handler, which runs in the main thread while that waits in `ppoll`.
bool qvn_log_drain(std::chrono::milliseconds timeout);

/// Writes what is queued and ends the log thread. Main thread.
void qvn_log_exit();

/// Releases queued lines, bound loggers and the file's name. Does not close the file.
void qvn_log_uninit();
