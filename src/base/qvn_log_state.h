/// The part of the logger's state that its own tests look at and turn. No module of the daemon
/// includes this: the logger's interface is qvn_log.h.
#pragma once

#include <atomic>
#include <cstdint>

/// Lines that wait, those not counted that the log thread is writing.
extern std::atomic<uint32_t> g_curr_log_que_size;

/// Seconds since the epoch at or after which the next size check runs; 0 makes the log thread check
/// at its next turn.
extern std::atomic<int64_t> g_check_log_tv;

/// Number of the next rotated file, 1 to 5.
extern std::atomic<uint8_t> g_log_rotate;
