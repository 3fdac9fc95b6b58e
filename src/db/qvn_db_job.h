/// What the two kinds of job have in common: a job over its database, with a folder of result files
/// and a row that shows how far it is. The modules derive their tasks from it.
///
/// Made by the poller, then its worker thread's alone.
#pragma once

#include <cstdint>
#include <string>

#include "db/qvn_db.h"
#include "db/qvn_job_folder.h"
#include "db/qvn_job_queue.h"

/// What the portal reads of a job that found no memory.
inline constexpr const char* kMemoryShortage = "System memory shortage";

struct qvn_db_job : qvn_job {
  /// Begins, works, writes the final row and closes the connection, opens the folder to everyone,
  /// logs how it ended and frees what it holds. A shortage of memory in one step does not keep the
  /// steps after it from being done.
  void run() noexcept final;

  /// Writes the first progress into the row. Empty, or why the server refuses it: a job whose row
  /// cannot be written would be done again at each poll, so it ends here, with its connection
  /// closed and its row as it is. Throws std::bad_alloc when memory runs out.
  [[nodiscard]] std::string write_first_progress(const std::string& sql, qvn_log_place place);

  pg_connection connection;  ///< null until the worker has connected, and at the end
  qvn_job_folder folder;     ///< of the result files
  int64_t start_time = 0;    ///< seconds since the epoch, as the next
  int64_t end_time = 0;      ///< when the final row was written

 protected:
  /// The job's own steps, of which the first logs that it begins. May throw std::bad_alloc.
  virtual void work() = 0;

  /// Logs that memory ran out, and makes that the job's outcome.
  virtual void report_memory_shortage() = 0;

  /// Writes outcome and figures into the row. `connection` is there. May throw std::bad_alloc.
  virtual void write_final_row() = 0;

  virtual void log_end() const = 0;

  /// Frees all that grows with what was loaded.
  virtual void release_data() = 0;

 private:
  void guarded(void (qvn_db_job::*step)());
  void finish();
};
