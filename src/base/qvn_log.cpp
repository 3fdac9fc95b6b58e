#include "base/qvn_log.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <pthread.h>
#include <string_view>
#include <sys/stat.h>
#include <utility>

#include "base/qvn_log_binding.h"
#include "base/qvn_log_state.h"
#include "base/qvn_mutex.h"
#include "base/qvn_text.h"
#include "base/qvn_thread.h"

namespace {

constexpr const char* kLogSource = "qvn_log";

/// A line is cut so that it fits, its NUL included.
constexpr std::size_t kLineBufferSize = 2048;
constexpr std::size_t kRotatedNameSize = 500;

/// A line is refused when more than this number wait.
constexpr uint32_t kQueueLimit = 100'000;

constexpr uint32_t kEveryLevel = 100;
constexpr uint32_t kDefaultLogSize = 300 * 1024 * 1024;
constexpr int64_t kSizeCheckInterval = 300;
constexpr uint8_t kRotatedFiles = 5;

/// How long the idle log thread sleeps before it looks at the file's size again.
constexpr std::chrono::milliseconds kIdleWait{50};

/// How often a drain looks whether the log thread has caught up.
constexpr long kDrainPollNanoseconds = 1'000'000;

enum log_output : uint32_t { kOutputFile = 1, kOutputStandardError = 2 };

constexpr std::array<const char*, 9> log_level_desc = {"[EMERGENCY]", "[ALERT]",   "[CRITICAL]",
                                                       "[ERROR]",     "[WARNING]", "[NOTICE]",
                                                       "[INFO]",      "[DEBUG]",   ""};

/// One queued line; its text lies behind it in the same block.
struct log_entry {
  log_entry* next;  ///< the line queued after this one
  char* text;       ///< the complete line
  uint32_t level;
  uint8_t force;  ///< 1: passes every level filter
};

// Everything below is constant-initialised and has no destructor: other threads still log, and the
// log thread still writes, while the process ends.

std::atomic<uint32_t> g_log_level{kEveryLevel};  ///< the file's and standard error's threshold
std::atomic<uint32_t> g_max_log_size{kDefaultLogSize};  ///< bytes; 0: no size check
std::atomic<uint32_t> g_log_output{kOutputFile};

/// Guards the queue. Taken alone.
qvn_mutex g_log_mutex;
/// Signalled when the queue is no longer empty and when the log thread is to end.
qvn_condition g_log_cond;
log_entry* g_log_queue_head QVN_GUARDED_BY(g_log_mutex) = nullptr;
log_entry* g_log_queue_tail QVN_GUARDED_BY(g_log_mutex) = nullptr;
/// 1 while the log thread is to keep running.
uint8_t g_log_running QVN_GUARDED_BY(g_log_mutex) = 0;
/// Lines ever queued, and lines that have reached the sinks or were given up; drained when they are
/// equal.
std::atomic<uint64_t> g_log_queued{0};
std::atomic<uint64_t> g_log_done{0};

/// Guards the stream and its name: the log thread writes and rotates while the main thread opens
/// and closes. Taken alone.
qvn_mutex g_log_file_mutex;
std::FILE* g_log_file QVN_GUARDED_BY(g_log_file_mutex) = nullptr;
char* g_log_file_name QVN_GUARDED_BY(g_log_file_mutex) = nullptr;

pthread_t g_log_thread_id{};  ///< main thread only
std::atomic<bool> g_log_thread_started{false};

// The timestamp of the last line and the second that it shows. Each thread has its own, so that
// nobody waits for it.
thread_local std::array<char, 64> log_dt{};
thread_local time_t log_sec = -1;

const char* level_label(uint32_t level) {
  return log_level_desc[std::min<std::size_t>(level, log_level_desc.size() - 1)];
}

int64_t seconds_now() {
  return static_cast<int64_t>(time(nullptr));
}

/// The current local second, with a blank behind it; empty when it cannot be broken down.
const char* timestamp() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (now.tv_sec != log_sec) {
    log_sec = now.tv_sec;
    log_dt[0] = '\0';
    tm date{};
    if (localtime_r(&now.tv_sec, &date) != nullptr) {
      std::snprintf(log_dt.data(), log_dt.size(), "%04ld-%02d-%02d %02d:%02d:%02d ",
                    date.tm_year + 1900L, date.tm_mon + 1, date.tm_mday, date.tm_hour, date.tm_min,
                    date.tm_sec);
    }
  }
  return log_dt.data();
}

/// An entry with its own copy of the text, or none when memory runs out.
log_entry* make_entry(std::string_view text, uint32_t level, uint8_t force) {
  void* block = ::operator new(sizeof(log_entry) + text.size() + 1, std::nothrow);
  if (block == nullptr) {
    return nullptr;
  }
  char* own_text = static_cast<char*>(block) + sizeof(log_entry);
  own_text[text.copy(own_text, text.size())] = '\0';
  return new (block) log_entry{nullptr, own_text, level, force};
}

void free_entry(log_entry* entry) {
  ::operator delete(entry);
}

bool queue_is_full() {
  return g_curr_log_que_size.load(std::memory_order_relaxed) > kQueueLimit;
}

/// Links the entry behind the last one; false when the queue has filled up by now.
bool link_entry(log_entry* entry) {
  bool was_empty = false;
  {
    const qvn_lock_guard guard(g_log_mutex);
    if (queue_is_full()) {
      return false;
    }
    was_empty = g_log_queue_tail == nullptr;
    (was_empty ? g_log_queue_head : g_log_queue_tail->next) = entry;
    g_log_queue_tail = entry;
    g_curr_log_que_size.fetch_add(1, std::memory_order_relaxed);
    g_log_queued.store(g_log_queued.load(std::memory_order_relaxed) + 1, std::memory_order_release);
  }
  if (was_empty) {
    g_log_cond.signal();
  }
  return true;
}

int32_t append_line(std::string_view text, uint32_t level, uint8_t force) {
  log_entry* entry = make_entry(text, level, force);
  if (entry == nullptr) {
    return -2;
  }
  if (!link_entry(entry)) {
    free_entry(entry);
    return -1;
  }
  return 0;
}

/// The beginning of a line, "%s %s %s:%i " of time, label, source and line number, cut at the
/// buffer's end. By hand, because every line of every thread pays for it. Returns its length.
std::size_t write_prefix(std::array<char, kLineBufferSize>& buffer, uint32_t level,
                         const char* file, int line) {
  std::size_t used = 0;
  const auto add = [&](std::string_view text) {
    used += text.copy(buffer.data() + used, buffer.size() - 1 - used);
  };
  std::array<char, 16> number;
  const char* end = std::to_chars(number.begin(), number.end(), line).ptr;
  add(timestamp());
  add(" ");
  add(level_label(level));
  add(" ");
  add(qvn_or_empty(file));
  add(":");
  add({number.data(), end});
  add(" ");
  buffer[used] = '\0';
  return used;
}

/// Formats and queues a line that has passed the filter.
[[gnu::noinline, gnu::format(printf, 5, 0)]] int32_t print_line(const char* file, int line,
                                                                uint32_t level, uint8_t force,
                                                                const char* format,
                                                                va_list arguments) {
  if (queue_is_full()) {
    return -1;
  }
  std::array<char, kLineBufferSize> buffer;
  const std::size_t used = write_prefix(buffer, level, file, line);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the caller has started it
  if (std::vsnprintf(buffer.data() + used, buffer.size() - used, format, arguments) < 0) {
    buffer[used] = '\0';
  }
  return append_line(buffer.data(), level, force);
}

/// Takes all that waits off the queue; none when nothing came within the idle time. Sets `ended`
/// when nothing waits and the thread is to end.
log_entry* take_entries(bool& ended) {
  const qvn_lock_guard guard(g_log_mutex);
  if (g_log_queue_head == nullptr) {
    ended = g_log_running == 0;
    if (!ended) {
      g_log_cond.wait_for(g_log_mutex, kIdleWait);
    }
  }
  g_log_queue_tail = nullptr;
  return std::exchange(g_log_queue_head, nullptr);
}

/// The level is the one that holds now, not when the line was queued.
void write_to_sink(const log_entry& entry) {
  if (entry.level > g_log_level.load(std::memory_order_relaxed) && entry.force != 1) {
    return;
  }
  if (g_log_output.load(std::memory_order_relaxed) == kOutputStandardError) {
    (void)std::fputs(entry.text, stderr);
    return;
  }
  const qvn_lock_guard guard(g_log_file_mutex);
  if (g_log_file != nullptr) {
    // There is nobody to report a failed write to.
    (void)std::fputs(entry.text, g_log_file);
    (void)std::fflush(g_log_file);
  }
}

/// Renames the file and goes on with an empty one; without one when that cannot be opened.
void rotate_log_file() QVN_REQUIRES(g_log_file_mutex) {
  std::array<char, kRotatedNameSize> rotated{};
  const int number = g_log_rotate.load(std::memory_order_relaxed);
  (void)std::snprintf(rotated.data(), rotated.size(), "%s.%d", g_log_file_name, number);
  // Where renaming fails the file is emptied all the same: it must not fill the disk.
  (void)std::rename(g_log_file_name, rotated.data());
  g_log_rotate.store(static_cast<uint8_t>(number < kRotatedFiles ? number + 1 : 1),
                     std::memory_order_relaxed);
  (void)std::fclose(g_log_file);
  g_log_file = std::fopen(g_log_file_name, "wt+e");
}

/// Whether the name leads to the file that is written to.
bool name_leads_to_file() QVN_REQUIRES(g_log_file_mutex) {
  struct stat named {};
  struct stat written {};
  return stat(g_log_file_name, &named) == 0 && fstat(fileno(g_log_file), &written) == 0 &&
         named.st_dev == written.st_dev && named.st_ino == written.st_ino;
}

/// Opens the name again when the file has been moved or removed; true when it did. Where that
/// fails, the old file is written to as before.
bool reopen_if_moved() {
  const qvn_lock_guard guard(g_log_file_mutex);
  if (g_log_file_name == nullptr || g_log_file == nullptr || name_leads_to_file()) {
    return false;
  }
  std::FILE* const file = std::fopen(g_log_file_name, "at+e");
  if (file == nullptr) {
    return false;
  }
  (void)std::fclose(std::exchange(g_log_file, file));
  return true;
}

/// Rotates a file of `limit` bytes or more; returns the size that it had, or 0.
off_t rotate_if_exceeded(uint32_t limit) {
  const qvn_lock_guard guard(g_log_file_mutex);
  struct stat status {};
  if (g_log_file_name == nullptr || g_log_file == nullptr || limit == 0 ||
      stat(g_log_file_name, &status) != 0 || status.st_size < static_cast<off_t>(limit)) {
    return 0;
  }
  rotate_log_file();
  return status.st_size;
}

/// Whether the time has come; sets the next time then. A clock that was stepped back does not put
/// the next check off beyond the interval.
bool size_check_is_due() {
  const int64_t now = seconds_now();
  const int64_t next = g_check_log_tv.load(std::memory_order_relaxed);
  if (now < next && next <= now + kSizeCheckInterval) {
    return false;
  }
  g_check_log_tv.store(now + kSizeCheckInterval, std::memory_order_relaxed);
  return now >= next;
}

void check_log_size() {
  if (!size_check_is_due()) {
    return;
  }
  if (reopen_if_moved()) {
    QVN_LOG(kLogNotice, "The logfile was moved or removed, opened it again\n");
  }
  const uint32_t limit = g_max_log_size.load(std::memory_order_relaxed);
  if (const off_t size = rotate_if_exceeded(limit); size > 0) {
    QVN_LOG(kLogNotice, "The logfile size as %d(%d KB), exceeded limit %d(%d KB)\n",
            static_cast<int>(size), static_cast<int>(size >> 10), static_cast<int>(limit),
            static_cast<int>(limit >> 10));
  }
}

void deliver(log_entry* entry) {
  g_curr_log_que_size.fetch_sub(1, std::memory_order_relaxed);
  qvn_log_send_to_bound_loggers(entry->text, entry->level, entry->force);
  write_to_sink(*entry);
  free_entry(entry);
  g_log_done.fetch_add(1, std::memory_order_release);
}

void* log_thread_run(void*) {
  qvn_thread_set_name("qvn_log");
  for (bool ended = false; !ended;) {
    check_log_size();
    log_entry* entry = take_entries(ended);
    while (entry != nullptr) {
      log_entry* next = entry->next;
      check_log_size();
      deliver(entry);
      entry = next;
    }
  }
  return nullptr;
}

void release_queue() {
  log_entry* entry = nullptr;
  {
    const qvn_lock_guard guard(g_log_mutex);
    entry = std::exchange(g_log_queue_head, nullptr);
    g_log_queue_tail = nullptr;
  }
  while (entry != nullptr) {
    free_entry(std::exchange(entry, entry->next));
    g_curr_log_que_size.fetch_sub(1, std::memory_order_relaxed);
    g_log_done.fetch_add(1, std::memory_order_release);
  }
}

void set_log_running(uint8_t running) {
  const qvn_lock_guard guard(g_log_mutex);
  g_log_running = running;
  g_log_cond.signal();
}

/// Opens the stream in place of the present one and keeps the name; false when it cannot be opened.
bool open_log_stream(const char* path) QVN_REQUIRES(g_log_file_mutex) {
  g_log_file = std::fopen(path, "at+e");
  if (g_log_file == nullptr) {
    return false;
  }
  std::free(g_log_file_name);
  // Without a name, when memory runs out, there is no rotation.
  g_log_file_name = qvn_strdup(path).release();
  return true;
}

}  // namespace

std::atomic<uint32_t> g_curr_log_que_size{0};
std::atomic<int64_t> g_check_log_tv{0};
std::atomic<uint8_t> g_log_rotate{1};

int32_t qvn_log_init() {
  if (g_log_thread_started) {
    return 0;
  }
  release_queue();
  qvn_log_release_bound_loggers();
  (void)qvn_log_file_close();
  g_log_level.store(kEveryLevel, std::memory_order_relaxed);
  g_log_output.store(kOutputFile, std::memory_order_relaxed);
  g_check_log_tv.store(seconds_now(), std::memory_order_relaxed);
  set_log_running(1);
  const int error = pthread_create(&g_log_thread_id, nullptr, log_thread_run, nullptr);
  g_log_thread_started = error == 0;
  if (error != 0) {
    (void)std::fprintf(stderr, "The log thread can't be started, %s\n", std::strerror(error));
  }
  return 0;
}

int32_t qvn_log_file_open(const char* path, uint32_t level, uint8_t foreground) {
  if (path == nullptr) {
    return 0;
  }
  const bool needs_file = foreground != 1;
  bool opened = false;
  {
    const qvn_lock_guard guard(g_log_file_mutex);
    if (g_log_file != nullptr) {
      return -2;
    }
    opened = open_log_stream(path);
    if (!opened && needs_file) {
      return -3;
    }
    g_log_output.store(needs_file ? kOutputFile : kOutputStandardError, std::memory_order_relaxed);
  }
  (void)qvn_log_set_level(level);
  return opened ? 0 : -3;
}

int32_t qvn_log_file_reopen(const char* path) {
  if (path == nullptr) {
    return 0;
  }
  const qvn_lock_guard guard(g_log_file_mutex);
  if (g_log_file == nullptr) {
    return 0;
  }
  (void)std::fclose(g_log_file);
  return open_log_stream(path) ? 0 : -3;
}

int32_t qvn_log_file_close() {
  const qvn_lock_guard guard(g_log_file_mutex);
  if (g_log_file != nullptr) {
    (void)std::fclose(std::exchange(g_log_file, nullptr));
  }
  return 0;
}

int32_t qvn_log_set_level(uint32_t level) {
  if (level <= kLogDebug) {
    g_log_level.store(level, std::memory_order_relaxed);
  }
  (void)qvn_log_print(kLogSource, __LINE__, kLogNotice, 1, "Changed log level to %s\n",
                      level_label(level));
  return 0;
}

void qvn_log_set_size(uint32_t size) {
  if (size == 0) {
    return;
  }
  g_max_log_size.store(size, std::memory_order_relaxed);
  QVN_LOG(kLogDebug, "Changed log file size to %d\n", static_cast<int>(size));
}

int32_t qvn_log_print(const char* file, int line, uint32_t level, uint8_t force, const char* format,
                      ...) {
  if (level > g_log_level.load(std::memory_order_relaxed) && force == 0 &&
      !qvn_log_has_bound_loggers()) {
    return -1;
  }
  va_list arguments;
  va_start(arguments, format);
  const int32_t result = print_line(file, line, level, force, format, arguments);
  va_end(arguments);
  return result;
}

int32_t qvn_log_print_content(const char* text) {
  if (queue_is_full()) {
    return -1;
  }
  const std::string_view content = qvn_or_empty(text);
  return append_line(content.substr(0, kLineBufferSize - 1), kLogDebug, 1);
}

bool qvn_log_drain(std::chrono::milliseconds timeout) {
  const uint64_t target = g_log_queued.load(std::memory_order_acquire);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (g_log_done.load(std::memory_order_acquire) < target) {
    if (!g_log_thread_started || std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    const timespec pause{0, kDrainPollNanoseconds};
    nanosleep(&pause, nullptr);
  }
  return true;
}

void qvn_log_exit() {
  QVN_LOG(kLogNotice, "The log module exit...\n");
  set_log_running(0);
  if (g_log_thread_started.exchange(false)) {
    pthread_join(g_log_thread_id, nullptr);
  }
}

void qvn_log_uninit() {
  release_queue();
  qvn_log_release_bound_loggers();
  const qvn_lock_guard guard(g_log_file_mutex);
  std::free(std::exchange(g_log_file_name, nullptr));
}
