/// The job poller: one thread that visits every served database every few seconds and asks the job
/// modules to pick up waiting jobs there. It knows nothing of the job tables; it supplies
/// connection, database and rhythm.
///
/// The thread holds the database list lock for a whole cycle, connection attempts included. A
/// database that does not answer keeps it there for a bounded time only (qvn_poll_budget.h). All
/// functions are the main thread's and safe in any state.
#pragma once

#include <cstdint>
#include <libpq-fe.h>
#include <span>

struct db_info;

/// Asks a job module for work in the database behind the connection, which stays the poller's.
/// Above 0 when jobs were found or the module is full, 0 when there are none, -1 when it could not
/// ask. Runs under the database list lock; what it needs of the database later it copies.
using qvn_job_picker = int32_t (*)(PGconn* connection, db_info* database);

/// Takes the pickers that are asked in each database, in their order; they stay with the caller.
/// Before the thread starts.
void qvn_task_set_pickers(std::span<const qvn_job_picker> pickers);

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
