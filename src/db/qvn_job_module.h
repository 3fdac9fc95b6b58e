/// What the two job modules have in common: a directory for result files, a queue, and the way from
/// a waiting row of their job table into the queue. The modules add what their jobs are.
///
/// pick() and add() are the poller's, under the database list lock; everything else is the main
/// thread's. Locks: the queue's mutex (qvn_job_queue.h); the directory is written before the first
/// thread starts. Log lines carry the module's word and the caller's line.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/qvn_core_ctrl.h"
#include "db/qvn_db_conf.h"
#include "db/qvn_db_job.h"
#include "db/qvn_job_queue.h"
#include "db/qvn_pg_rows.h"

/// What one module has and the other has not. The texts are constants.
struct qvn_job_module_config {
  qvn_job_queue_config queue;
  const char* kind;                    ///< of its jobs in log lines: "rerate"
  const char* directory;               ///< of the result files, until the settings give another;
                                       ///< below the installation's
  const char* query;                   ///< asks for waiting rows
  int columns;                         ///< of each of them
  uint16_t qvn_core_ctrl::*most_jobs;  ///< the limit of jobs waiting or running
  uint16_t db_info::*count;            ///< the jobs of a database
};

class qvn_job_module {
 public:
  /// What same_job() answers for a job that is there already; 0 admits.
  static constexpr int32_t kSameJob = 1;

  /// Makes the module. 0, or -1, logged, when memory runs out.
  [[nodiscard]] static int32_t init(qvn_job_module*& module, const qvn_job_module_config& config,
                                    int line = __builtin_LINE());

  /// Starts the dispatcher. 0, or the error number.
  [[nodiscard]] int32_t start() { return queue_.start(); }

  /// Ends the dispatcher and waits for the running jobs. Returns 0. The module may be null.
  static int32_t exit(qvn_job_module* module);

  /// Frees the waiting jobs and the module, which may be null, and sets it to null. Returns 0.
  static int32_t uninit(qvn_job_module*& module);

  /// Reads the waiting rows, and hands each to `create`, which may throw std::bad_alloc: that is
  /// logged. 1, with a WARNING, when more jobs wait or run than the limit allows: one poll of one
  /// database may take them above it. Else the number of rows, or -1, with a NOTICE, when there was
  /// no answer.
  [[nodiscard]] int32_t pick(PGconn* connection, db_info& database,
                             void (*create)(const pg_row& row, db_info& database),
                             int line = __builtin_LINE());

  /// Completes the job by what its database says, and puts it into the queue unless `admission`
  /// refuses it. Returns what `admission` answered; logs 0 and kSameJob. Throws std::bad_alloc when
  /// memory runs out.
  int32_t add(std::unique_ptr<qvn_db_job> job, db_info& database,
              qvn_job_queue::admission_fn admission, int line = __builtin_LINE());

  /// The admission that refuses only a job that is there already.
  [[nodiscard]] static int32_t same_job(const qvn_job& fresh, const qvn_job* first_waiting,
                                        const qvn_job* first_running);

  std::string directory;  ///< ends in "/"

 private:
  explicit qvn_job_module(const qvn_job_module_config& config);

  const qvn_job_module_config config_;
  qvn_job_queue queue_;
};
