#include "base/qvn_log_binding.h"

#include <cstring>
#include <new>
#include <sys/socket.h>
#include <utility>

#include "base/qvn_log.h"
#include "base/qvn_mutex.h"

namespace {

constexpr const char* kLogSource = "qvn_log";

/// A socket that receives a copy of the lines.
struct log_bind_logger {
  int32_t fd;             ///< the caller's
  uint32_t level;         ///< the most verbose level that it takes
  log_bind_logger* next;  ///< the one bound after this one
};

// Constant-initialised and without a destructor, as the log thread may still send while the process
// ends.

/// Guards the list of bound loggers. Taken alone.
qvn_mutex g_log_binding_mutes;
log_bind_logger* g_log_binding QVN_GUARDED_BY(g_log_binding_mutes) = nullptr;

constexpr int32_t kNoDescriptor = -1;  ///< no logger has it

/// The first bound logger with that descriptor, or the end of the list.
log_bind_logger** find_bound_logger(int32_t fd) QVN_REQUIRES(g_log_binding_mutes) {
  log_bind_logger** link = &g_log_binding;
  while (*link && (*link)->fd != fd) {
    link = &(*link)->next;
  }
  return link;
}

}  // namespace

std::atomic<uint32_t> g_log_binding_count{0};

void qvn_log_send_to_bound_loggers(const char* text, uint32_t level, uint8_t force) {
  if (!qvn_log_has_bound_loggers()) {
    return;
  }
  const qvn_lock_guard guard(g_log_binding_mutes);
  for (const log_bind_logger* logger = g_log_binding; logger; logger = logger->next) {
    if (logger->level >= level || force == 1) {
      // The result is not looked at: a logger that is gone, or does not read, loses the line. It
      // must not stop the log thread, so the send does not wait.
      (void)send(logger->fd, text, std::strlen(text), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
  }
}

void qvn_log_release_bound_loggers() {
  const qvn_lock_guard guard(g_log_binding_mutes);
  while (g_log_binding) {
    delete std::exchange(g_log_binding, g_log_binding->next);
  }
  g_log_binding_count.store(0, std::memory_order_release);
}

int32_t qvn_log_add_bind_logger(int32_t fd, uint32_t level) {
  if (level > kLogDebug || fd < 0) {
    QVN_LOG(kLogError, "%s", "Invalid input parameter\n");
    return -1;
  }
  auto* logger = new (std::nothrow) log_bind_logger{fd, level, nullptr};
  if (!logger) {
    QVN_LOG(kLogError, "%s", "Alloc memory for log bind logger fail\n");
    return -1;
  }
  const qvn_lock_guard guard(g_log_binding_mutes);
  *find_bound_logger(kNoDescriptor) = logger;
  g_log_binding_count.fetch_add(1, std::memory_order_release);
  return 0;
}

int32_t qvn_log_add_unbind_logger(int32_t fd) {
  if (fd < 0) {
    QVN_LOG(kLogError, "%s", "Invalid input parameter\n");
    return -1;
  }
  const qvn_lock_guard guard(g_log_binding_mutes);
  if (log_bind_logger** link = find_bound_logger(fd); *link) {
    delete std::exchange(*link, (*link)->next);
    g_log_binding_count.fetch_sub(1, std::memory_order_release);
  }
  return 0;
}

int32_t qvn_log_bind_logger_set_level(int32_t fd, uint32_t level) {
  if (level > kLogDebug || fd < 0) {
    QVN_LOG(kLogError, "%s", "Invalid log level or invalid fd\n");
    return -1;
  }
  const qvn_lock_guard guard(g_log_binding_mutes);
  if (log_bind_logger* logger = *find_bound_logger(fd); logger) {
    logger->level = level;
  }
  return 0;
}
