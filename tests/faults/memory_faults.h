/// Memory that runs out when a test wants it: in a program that links this, or has it preloaded,
/// allocations, anonymous mappings and new threads fail in one thread, by their number.
#pragma once

#include <atomic>
#include <cstdint>

/// Which allocations of a thread fail, and how many did.
struct memory_shortage {
  std::atomic<int32_t> left = 0;           ///< allocations up to the one that fails; 0: none fails
  std::atomic<bool> from_then_on = false;  ///< all that follow fail as well
  std::atomic<int32_t> failed = 0;
};

/// The calling thread's; null: nothing of it fails.
extern constinit thread_local memory_shortage* t_memory_shortage;

/// That of each thread that names itself, as the daemon's threads do when they begin.
extern std::atomic<memory_shortage*> g_memory_shortage_of_threads;

/// Blocks, and pages of mappings, that were not given back, but for those that belong to a
/// thread: they are kept with its stack for the next one.
extern std::atomic<int64_t> g_memory_held;
