/// The job poller: one thread that visits every served database every few seconds and asks the job
/// modules to pick up waiting jobs there. It knows nothing of the job tables; it supplies
/// connection, database and rhythm.
///
/// The thread holds the database list lock for a whole cycle, connection attempts included. A
/// database that does not answer keeps it there for a bounded time only (qvn_poll_budget.h). All
/// functions are the main thread's and safe in any state.
#pragma once

#include <cstdint>

/// 0, or -1, logged, when memory runs out.
[[nodiscard]] int32_t qvn_task_init();

/// Starts the poll thread; the first cycle comes 5 seconds later. 0, or the error number.
[[nodiscard]] int32_t qvn_task_start();

/// Ends the thread, within a second or after the current cycle. Returns 0.
int32_t qvn_task_exit();

/// Frees the control record. Returns 0.
int32_t qvn_task_uninit();

/// Seconds from the beginning of one cycle to the next, by what the pickers answered, OR-ed bitwise
/// over all databases: 3 when jobs were found; 5 when there were none or any picker failed with -1.
[[nodiscard]] int64_t qvn_task_interval(int32_t found);
