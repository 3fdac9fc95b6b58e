/// Memory that runs out when a test wants it: in a program that links this, or has it preloaded,
/// allocations, anonymous mappings and new threads fail in one thread, by their number.
#pragma once

#include <atomic>
#include <cstdint>

/// Which allocations of a thread fail, counted from 1 on, and how many did.
struct memory_shortage {
  std::atomic<uint32_t> fail_at = 0;       ///< 0: none
  std::atomic<bool> from_then_on = false;  ///< all that follow fail as well
  std::atomic<uint32_t> seen = 0;
  std::atomic<uint32_t> failed = 0;
};

/// The calling thread's, which threads that it starts take over; null: nothing of it is counted.
extern constinit thread_local memory_shortage* t_memory_shortage;

/// Blocks, and pages of mappings, that nobody has given back, but for those that belong to a
/// thread: they are kept with its stack for the next one.
extern std::atomic<int64_t> g_memory_held;
