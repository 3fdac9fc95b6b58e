/// The table by which a test makes allocations of a running daemon fail: one file, mapped by the
/// test and by the library that is preloaded into the daemon and named there by $QVN_MEMORY_FAULTS.
#pragma once

#include <atomic>
#include <cstdint>

/// Allocations of one thread, or of all threads whose name has one first word ("import 7").
struct MemoryTarget {
  char thread[16];  ///< name as in top -H; empty: an unused place; "main" from main() on

  std::atomic<uint32_t> fail_at;   ///< the number of the allocation that fails, from 1; 0: none
  std::atomic<bool> from_then_on;  ///< all that follow fail as well
  std::atomic<uint32_t> step;      ///< not 0: counting begins anew when a connection of the
                                   ///< thread has ended, and `fail_at` grows by so much

  std::atomic<uint32_t> seen;    ///< allocations since the test has set this to 0
  std::atomic<uint32_t> failed;  ///< those that failed
  std::atomic<uint32_t> begun;   ///< threads that took the name
  std::atomic<uint32_t> ended;   ///< those of them that have ended
};

struct MemoryFaults {
  std::atomic<uint32_t> version;     ///< raised when the names below have changed
  std::atomic<int64_t> live_bytes;   ///< of blocks and mappings that nobody has given back
  std::atomic<int64_t> live_blocks;  ///< blocks that nobody has freed
  std::atomic<bool> running;         ///< the daemon has reached its run loop
  MemoryTarget targets[128];
};
