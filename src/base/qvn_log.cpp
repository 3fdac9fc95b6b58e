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
#include <utility>

#include "base/qvn_log_binding.h"
#include "base/qvn_log_file.h"
#include "base/qvn_log_state.h"
#include "base/qvn_mutex.h"
#include "base/qvn_text.h"
#include "base/qvn_thread.h"

namespace {

constexpr const char* kLogSource = "qvn_log";

/// A line is cut so that it fits, its NUL included.
constexpr std::size_t kLineBufferSize = 2048;
/// A line is refused when more than this number wait.
constexpr uint32_t kQueueLimit = 100'000;

constexpr uint32_t kEveryLevel = 100;
/// How long the idle log thread sleeps before it looks at the file's size again.
constexpr std::chrono::milliseconds kIdleWait{50};

/// How often a drain looks whether the log thread has caught up.
constexpr long kDrainPollNanoseconds = 1'000'000;

constexpr std::array<const char*, 9> log_level_desc = {"[EMERGENCY]", "[ALERT]",   "[CRITICAL]",
                                                       "[ERROR]",     "[WARNING]", "[NOTICE]",
                                                       "[INFO]",      "[DEBUG]",   ""};

/// One queued line; its text lies after it in the same block.
struct log_entry {
  log_entry* next;  ///< the line queued after this one
  char* text;       ///< the complete line
  uint32_t level;
  uint8_t force;  ///< 1: passes every level filter
};

// Everything below is constant-initialised and has no destructor: other threads still log, and the
// log thread still writes, while the process ends.

std::atomic<uint32_t> g_log_level{kEveryLevel};  ///< the file's and standard error's threshold
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

pthread_t g_log_thread_id{};  ///< main thread only
std::atomic<bool> g_log_thread_started{false};

// The timestamp of the last line and the second that it shows. Each thread has its own, so that
// none waits for it.
thread_local std::array<char, 64> log_dt{};
thread_local time_t log_sec = -1;

const char* level_label(uint32_t level) {
  return log_level_desc[std::min<std::size_t>(level, log_level_desc.size() - 1)];
}

/// The current local second, with a blank after it; empty when it cannot be broken down.
const char* timestamp() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (now.tv_sec != log_sec) {
    log_sec = now.tv_sec;
    log_dt[0] = '\0';
    tm date{};
    if (localtime_r(&now.tv_sec, &date)) {
      std::strftime(log_dt.data(), log_dt.size(), "%Y-%m-%d %H:%M:%S ", &date);
    }
  }
  return log_dt.data();
}

/// An entry with its own copy of the text, to be freed by ::operator delete, or none when memory
/// runs out.
log_entry* make_entry(std::string_view text, uint32_t level, uint8_t force) {
  void* block = ::operator new(sizeof(log_entry) + text.size() + 1, std::nothrow);
  if (!block) {
    return nullptr;
  }
  char* own_text = static_cast<char*>(block) + sizeof(log_entry);
  own_text[text.copy(own_text, text.size())] = '\0';
  return new (block) log_entry{nullptr, own_text, level, force};
}

bool queue_is_full() {
  return g_curr_log_que_size.load(std::memory_order_relaxed) > kQueueLimit;
}

/// Links the entry after the last one; false when the queue has filled up by now.
bool link_entry(log_entry* entry) {
  bool was_empty = false;
  {
    const qvn_lock_guard guard(g_log_mutex);
    if (queue_is_full()) {
      return false;
    }
    was_empty = !g_log_queue_tail;
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
  if (!entry) {
    return -2;
  }
  if (!link_entry(entry)) {
    ::operator delete(entry);
    return -1;
  }
  return 0;
}

/// The beginning of a line, "%s %s %s:%i " of time, label, source and line number, cut at the
/// buffer's end. By hand, because every line of every thread pays for it. Returns its length.
std::size_t write_prefix(std::array<char, kLineBufferSize>& buffer, uint32_t level,
                         const char* file, int line) {
  std::array<char, 16> number;
  const char* end = std::to_chars(number.begin(), number.end(), line).ptr;
  const std::string_view parts[] = {timestamp(),        " ", level_label(level),   " ",
                                    qvn_or_empty(file), ":", {number.data(), end}, " "};
  std::size_t used = 0;
  for (const std::string_view part : parts) {
    used += part.copy(buffer.data() + used, buffer.size() - 1 - used);
  }
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
  if (!g_log_queue_head) {
    ended = g_log_running == 0;
    if (!ended) {
      g_log_cond.wait_for(g_log_mutex, kIdleWait);
    }
  }
  g_log_queue_tail = nullptr;
  return std::exchange(g_log_queue_head, nullptr);
}

void deliver(log_entry* entry) {
  g_curr_log_que_size.fetch_sub(1, std::memory_order_relaxed);
  qvn_log_send_to_bound_loggers(entry->text, entry->level, entry->force);
  // The level is the one that holds now, not when the line was queued.
  if (entry->level <= g_log_level.load(std::memory_order_relaxed) || entry->force == 1) {
    qvn_log_write(entry->text);
  }
  ::operator delete(entry);
  g_log_done.fetch_add(1, std::memory_order_release);
}

void* log_thread_run(void*) {
  qvn_thread_set_name("qvn_log");
  for (bool ended = false; !ended;) {
    qvn_log_check_file();
    log_entry* entry = take_entries(ended);
    while (entry) {
      log_entry* next = entry->next;
      qvn_log_check_file();
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
  while (entry) {
    ::operator delete(std::exchange(entry, entry->next));
    g_curr_log_que_size.fetch_sub(1, std::memory_order_relaxed);
    g_log_done.fetch_add(1, std::memory_order_release);
  }
}

void set_log_running(uint8_t running) {
  const qvn_lock_guard guard(g_log_mutex);
  g_log_running = running;
  g_log_cond.signal();
}

}  // namespace

std::atomic<uint32_t> g_curr_log_que_size{0};

int32_t qvn_log_init() {
  if (g_log_thread_started) {
    return 0;
  }
  release_queue();
  qvn_log_release_bound_loggers();
  qvn_log_reset_file();
  g_log_level.store(kEveryLevel, std::memory_order_relaxed);
  set_log_running(1);
  const int error = pthread_create(&g_log_thread_id, nullptr, log_thread_run, nullptr);
  g_log_thread_started = error == 0;
  if (error != 0) {
    (void)std::fprintf(stderr, "The log thread can't be started, %s\n", std::strerror(error));
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
  qvn_log_forget_file_name();
}
