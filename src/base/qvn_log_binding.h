/// The bound loggers: sockets that receive a copy of the log's lines. Binding them is in qvn_log.h;
/// this is what only the logger itself calls.
#pragma once

#include <atomic>
#include <cstdint>

/// Number of bound loggers, so that a caller learns without their lock that there is none.
extern std::atomic<uint32_t> g_log_binding_count;

inline bool qvn_log_has_bound_loggers() {
  return g_log_binding_count.load(std::memory_order_acquire) != 0;
}

/// Sends the line to each bound logger whose level takes it, to all where `force` is 1, without
/// waiting for any. The log thread calls it.
void qvn_log_send_to_bound_loggers(const char* text, uint32_t level, uint8_t force);

/// Forgets all bound loggers; their descriptors stay the callers'. Any thread.
void qvn_log_release_bound_loggers();
