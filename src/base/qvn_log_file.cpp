#include "base/qvn_log_file.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/stat.h>
#include <utility>

#include "base/qvn_file.h"
#include "base/qvn_log.h"
#include "base/qvn_log_state.h"
#include "base/qvn_mutex.h"
#include "base/qvn_text.h"

namespace {

constexpr const char* kLogSource = "qvn_log";

constexpr std::size_t kRotatedNameSize = 500;
constexpr uint32_t kDefaultLogSize = 300 * 1024 * 1024;
constexpr int64_t kSizeCheckInterval = 300;
constexpr uint8_t kRotatedFiles = 5;

enum log_output : uint32_t { kOutputFile = 1, kOutputStandardError = 2 };

// Everything below is constant-initialised and has no destructor: the log thread still writes while
// the process ends.

std::atomic<uint32_t> g_max_log_size{kDefaultLogSize};  ///< bytes; 0: no size check
std::atomic<uint32_t> g_log_output{kOutputFile};

/// Guards the stream and its name: the log thread writes and rotates while the main thread opens
/// and closes. Taken alone.
qvn_mutex g_log_file_mutex;
std::FILE* g_log_file QVN_GUARDED_BY(g_log_file_mutex) = nullptr;
char* g_log_file_name QVN_GUARDED_BY(g_log_file_mutex) = nullptr;

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

/// Opens the name again when the file has been moved or removed; true when it did. Where that
/// fails, the old file is written to as before.
bool reopen_if_moved() {
  const qvn_lock_guard guard(g_log_file_mutex);
  if (!g_log_file_name || !g_log_file || qvn_leads_to(g_log_file_name, g_log_file)) {
    return false;
  }
  std::FILE* const file = std::fopen(g_log_file_name, "at+e");
  if (!file) {
    return false;
  }
  (void)std::fclose(std::exchange(g_log_file, file));
  return true;
}

/// Rotates a file of `limit` bytes or more; returns the size that it had, or 0.
off_t rotate_if_exceeded(uint32_t limit) {
  const qvn_lock_guard guard(g_log_file_mutex);
  struct stat status {};
  if (!g_log_file_name || !g_log_file || limit == 0 || stat(g_log_file_name, &status) != 0 ||
      status.st_size < static_cast<off_t>(limit)) {
    return 0;
  }
  rotate_log_file();
  return status.st_size;
}

/// Whether the time has come; sets the next time then. A clock that was stepped back does not put
/// the next check off beyond the interval.
bool size_check_is_due() {
  const int64_t now = std::time(nullptr);
  const int64_t next = g_check_log_tv.load(std::memory_order_relaxed);
  if (now < next && next <= now + kSizeCheckInterval) {
    return false;
  }
  g_check_log_tv.store(now + kSizeCheckInterval, std::memory_order_relaxed);
  return now >= next;
}

/// Opens the stream in place of the present one and keeps the name; false when it cannot be opened.
bool open_log_stream(const char* path) QVN_REQUIRES(g_log_file_mutex) {
  g_log_file = std::fopen(path, "at+e");
  if (!g_log_file) {
    return false;
  }
  std::free(g_log_file_name);
  // Without a name, when memory runs out, there is no rotation.
  g_log_file_name = qvn_strdup(path).release();
  return true;
}

}  // namespace

std::atomic<int64_t> g_check_log_tv{0};
std::atomic<uint8_t> g_log_rotate{1};

void qvn_log_write(const char* text) {
  if (g_log_output.load(std::memory_order_relaxed) == kOutputStandardError) {
    (void)std::fputs(text, stderr);
    return;
  }
  const qvn_lock_guard guard(g_log_file_mutex);
  if (g_log_file) {
    // There is nowhere to report a failed write to.
    (void)std::fputs(text, g_log_file);
    (void)std::fflush(g_log_file);
  }
}

void qvn_log_check_file() {
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

void qvn_log_reset_file() {
  (void)qvn_log_file_close();
  g_log_output.store(kOutputFile, std::memory_order_relaxed);
  g_check_log_tv.store(std::time(nullptr), std::memory_order_relaxed);
}

void qvn_log_forget_file_name() {
  const qvn_lock_guard guard(g_log_file_mutex);
  std::free(std::exchange(g_log_file_name, nullptr));
}

int32_t qvn_log_file_open(const char* path, uint32_t level, uint8_t foreground) {
  if (!path) {
    return 0;
  }
  const bool needs_file = foreground != 1;
  bool opened = false;
  {
    const qvn_lock_guard guard(g_log_file_mutex);
    if (g_log_file) {
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
  if (!path) {
    return 0;
  }
  const qvn_lock_guard guard(g_log_file_mutex);
  if (!g_log_file) {
    return 0;
  }
  (void)std::fclose(g_log_file);
  return open_log_stream(path) ? 0 : -3;
}

int32_t qvn_log_file_close() {
  const qvn_lock_guard guard(g_log_file_mutex);
  if (g_log_file) {
    (void)std::fclose(std::exchange(g_log_file, nullptr));
  }
  return 0;
}

void qvn_log_set_size(uint32_t size) {
  if (size == 0) {
    return;
  }
  g_max_log_size.store(size, std::memory_order_relaxed);
  QVN_LOG(kLogDebug, "Changed log file size to %d\n", static_cast<int>(size));
}
