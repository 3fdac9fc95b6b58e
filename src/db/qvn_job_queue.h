/// The mechanism that both kinds of job share: jobs wait in a FIFO, a dispatcher thread moves them
/// to a running stack and starts a detached worker for each, and the module's end waits for the
/// running ones. Admission rules, texts and SQL stay in the modules.
///
///     poller --add()--> [waiting: head ... tail] --dispatcher--> [running: newest ... oldest]
///                                                                   one worker each, leaves by
///                                                                   itself
///
/// The queue's mutex guards the lists and counts. It is never held across database work, and
/// nothing else is taken while it is held; the poller takes it while holding the database list
/// lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <pthread.h>
#include <string>

#include "base/qvn_mutex.h"

/// One job in memory; the modules derive their task records from it. Owned by the queue from add()
/// on.
struct qvn_job {
  qvn_job() = default;
  virtual ~qvn_job() = default;
  qvn_job(const qvn_job&) = delete;
  qvn_job& operator=(const qvn_job&) = delete;

  /// Does the work and reports it, in the job's own worker thread.
  virtual void run() noexcept = 0;

  /// Whether `other`, which may be null, comes from the same row of the same database.
  [[nodiscard]] bool is_same_as(const qvn_job* other) const {
    return other && other->id == id && other->label == label;
  }

  uint32_t id = 0;       ///< the job row's id
  std::string label;     ///< key of its database, "host-database name"
  std::string conninfo;  ///< connection string of its database

 private:
  friend class qvn_job_queue;
  class qvn_job_queue* queue_ = nullptr;
};

/// What a queue needs to know of its module. The texts are constants.
struct qvn_job_queue_config {
  const char* source;           ///< module word of its log lines
  const char* dispatcher_name;  ///< thread name
  const char* worker_name;      ///< thread name, followed by the job's id
  /// Called when a job has left the queue, by its worker; no lock is held.
  void (*left)(const qvn_job& job);
  int line = __builtin_LINE();  ///< of the configuration in its module; its log lines name it
};

/// Frees the jobs that still wait at its end, when no dispatcher and no worker may be left.
class qvn_job_queue {
 public:
  /// Compares a new job with the first waiting and the first running one, each of which may be
  /// null. Runs under the queue's mutex. 0 admits; the meaning of any other value is the module's
  /// own.
  ///
  /// With no others: that knows a row which a poll offers again while it is being started, however
  /// many jobs there are. A row that stays at 0 while later jobs begin is admitted once more.
  using admission_fn = int32_t (*)(const qvn_job& fresh, const qvn_job* first_waiting,
                                   const qvn_job* first_running);

  explicit qvn_job_queue(const qvn_job_queue_config& config) : config_(config) {}

  /// Jobs waiting or running. Any thread.
  [[nodiscard]] uint32_t count() QVN_EXCLUDES(mutex_);

  /// Appends the job unless `admission` refuses it, in which case it is freed. Returns what
  /// `admission` answered. Throws std::bad_alloc when memory runs out. Poller thread.
  int32_t add(std::unique_ptr<qvn_job> job, admission_fn admission) QVN_EXCLUDES(mutex_);

  /// Starts the dispatcher. 0, or the error number of the thread creation.
  [[nodiscard]] int32_t start();

  /// Ends the dispatcher, if it was started, and waits until no worker touches the queue any more.
  void stop() QVN_EXCLUDES(mutex_);

 private:
  using job_list = std::list<std::unique_ptr<qvn_job>>;

  static void* dispatcher_main(void* queue) noexcept;
  static void* worker_main(void* job) noexcept;
  void dispatch();
  qvn_job* next_to_run() QVN_EXCLUDES(mutex_);
  void start_worker(qvn_job* job) QVN_EXCLUDES(mutex_);
  void retire(qvn_job* job) QVN_EXCLUDES(mutex_);
  void lower_live_workers() QVN_EXCLUDES(mutex_);

  const qvn_job_queue_config config_;
  pthread_t dispatcher_{};
  bool dispatcher_started_ = false;    ///< main thread only
  std::atomic<bool> exiting_ = false;  ///< asks the dispatcher to stop

  qvn_mutex mutex_;
  qvn_condition changed_;  ///< a job was added, the queue is ending, or a worker is gone
  job_list running_ QVN_GUARDED_BY(mutex_);
  job_list waiting_ QVN_GUARDED_BY(mutex_);
  /// Workers that may still touch the queue; lowered after a job has left `running_`.
  uint32_t live_workers_ QVN_GUARDED_BY(mutex_) = 0;
};
