#include "db/qvn_job_module.h"

#include <ctime>
#include <new>

#include "base/qvn_log.h"

qvn_job_module::qvn_job_module(const qvn_job_module_config& config)
    : directory(g_core_ctrl->install_dir + config.directory),
      config_(config),
      queue_(config.queue) {}

int32_t qvn_job_module::init(qvn_job_module*& module, const qvn_job_module_config& config,
                             int line) {
  try {
    module = new qvn_job_module(config);
  } catch (const std::bad_alloc&) {
    (void)qvn_log_print(config.queue.source, line, kLogError, 0,
                        "Alloc memory for %s task control failed\n", config.kind);
    return -1;
  }
  return 0;
}

int32_t qvn_job_module::exit(qvn_job_module* module) {
  if (module) {
    module->queue_.stop();
  }
  return 0;
}

int32_t qvn_job_module::uninit(qvn_job_module*& module) {
  delete module;
  module = nullptr;
  return 0;
}

int32_t qvn_job_module::pick(PGconn* connection, db_info& database,
                             void (*create)(const pg_row& row, db_info& database), int line) {
  // At the limit a poll still picks up what it finds; above it, nothing.
  if (queue_.count() > g_core_ctrl->*config_.most_jobs) {
    (void)qvn_log_print(config_.queue.source, line, kLogWarning, 0,
                        "Maximum %s task in progress, can't start a new %s task\n", config_.kind,
                        config_.kind);
    return 1;
  }
  return qvn_pg_select(connection, config_.query, [&](const pg_row& row) {
    try {
      if (row.has_columns(config_.columns)) {
        create(row, database);
      }
    } catch (const std::bad_alloc&) {
      (void)qvn_log_print(config_.queue.source, line, kLogError, 0,
                          "Alloc memory for %s task failed, dbhost %s, dbname %s, task id %s\n",
                          config_.kind, database.host.c_str(), database.name.c_str(), row.text(0));
    }
  });
}

int32_t qvn_job_module::add(std::unique_ptr<qvn_db_job> job, db_info& database,
                            qvn_job_queue::admission_fn admission, int line) {
  // What the log lines show is kept, as the queue owns the job from here on.
  const int id = static_cast<int>(job->id);
  const qvn_db_key label = qvn_db_key_make(database.host, database.name);
  job->label = label.text;
  job->conninfo = database.conninfo;
  job->start_time = std::time(nullptr);
  const int32_t verdict = queue_.add(std::move(job), admission);
  if (verdict == 0) {
    (void)qvn_log_print(config_.queue.source, line, kLogNotice, 0,
                        "Added %s %s task %d, concurrent task count %d\n", label.text, config_.kind,
                        id, ++(database.*config_.count));
  } else if (verdict == kSameJob) {
    (void)qvn_log_print(config_.queue.source, line, kLogInfo, 0,
                        "%s %s task %d have been in process\n", label.text, config_.kind, id);
  }
  return verdict;
}

int32_t qvn_job_module::same_job(const qvn_job& fresh, const qvn_job* first_waiting,
                                 const qvn_job* first_running) {
  return fresh.is_same_as(first_waiting) || fresh.is_same_as(first_running) ? kSameJob : 0;
}
