#include "rerate/qvn_rerate.h"

#include <memory>
#include <new>

#include "base/qvn_log.h"
#include "core/qvn_settings.h"
#include "db/qvn_db_conf.h"
#include "db/qvn_job_queue.h"
#include "rerate/rerate_worker.h"

namespace {

constexpr const char* kLogSource = "qvn_rerate";

constexpr qvn_job_queue_config kQueueConfig = {
    .source = kLogSource,
    .dispatcher_name = "qvn_rerate",
    .worker_name = "rerate",
    .left = [](const qvn_job& job) { db_info_task_sub(job.label, job_kind::rerate); },
};

struct qvn_rerate_ctrl {
  std::string cdr_directory;  ///< ends in "/"
  qvn_job_queue queue{kQueueConfig};
};

qvn_rerate_ctrl* g_rerate_ctrl = nullptr;

constexpr qvn_number_setting kMaxTask = {
    kLogSource,
    qvn_core_store<&qvn_core_ctrl::max_rerate_task>,
    5,
    100,
    "The max concurrent rerate task item MUST be configurate\n",
    "The max concurrent rerate task MUST be in 5 - 100\n"};

int32_t read_directory(const char* value) {
  return qvn_conf_read_directory(g_rerate_ctrl->cdr_directory, value,
                                 "The directory of cdr file item MUST be configurate\n",
                                 kLogSource);
}

constexpr qvn_setting kSettings[] = {
    {"cdr_directory", read_directory, nullptr, kMostDirectoryCharacters},
    {"max_rerate_task", qvn_conf_read_number<kMaxTask>, &kMaxTask},
};

// --- admission -------------------------------------------------------------------------------

int32_t judge(const qvn_job& fresh, const qvn_job* first_waiting, const qvn_job* first_running) {
  return fresh.is_same_as(first_waiting) || fresh.is_same_as(first_running) ? 1 : 0;
}

/// Throws std::bad_alloc when memory runs out.
std::unique_ptr<rerate_worker> make_task(rerate_row row, const db_info& database) {
  auto task = std::make_unique<rerate_worker>(std::move(row));
  task->conninfo = database.conninfo;
  task->label = qvn_db_key_make(database.host, database.name).text;
  return task;
}

void enqueue(std::unique_ptr<rerate_task> task, db_info& database) {
  // What the log lines show is kept, as the queue owns the task from here on.
  const int id = static_cast<int>(task->id);
  const qvn_db_key label = qvn_db_key_make(database.host, database.name);
  if (g_rerate_ctrl->queue.add(std::move(task), judge) != 0) {
    QVN_LOG(kLogInfo, "%s rerate task %d have been in process\n", label.text, id);
    return;
  }
  ++database.rerate_count;
  QVN_LOG(kLogNotice, "Added %s rerate task %d, concurrent task count %d\n", label.text, id,
          database.rerate_count);
}

void rerate_task_create(const pg_row& row, db_info& database) {
  try {
    if (std::optional<rerate_row> job = rerate_row_read(row)) {
      enqueue(make_task(*std::move(job), database), database);
    }
  } catch (const std::bad_alloc&) {
    QVN_LOG(kLogError, "Alloc memory for rerate task failed, dbhost %s, dbname %s, task id %s\n",
            database.host.c_str(), database.name.c_str(), row.text(0));
  }
}

}  // namespace

int32_t qvn_rerate_init() {
  try {
    auto ctrl = std::make_unique<qvn_rerate_ctrl>();
    ctrl->cdr_directory = g_core_ctrl->install_dir + "/rerate_cdr/";
    g_rerate_ctrl = ctrl.release();
  } catch (const std::bad_alloc&) {
    QVN_LOG(kLogError, "Alloc memory for rerate task control failed\n");
    return -1;
  }
  return 0;
}

qvn_conf_section qvn_rerate_section() {
  return {"rerate", kSettings, read_rerate_config};
}

int32_t qvn_rerate_conf() {
  return qvn_load_section(qvn_rerate_section());
}

int32_t qvn_rerate_start() {
  return g_rerate_ctrl->queue.start();
}

int32_t qvn_rerate_exit() {
  if (g_rerate_ctrl) {
    g_rerate_ctrl->queue.stop();
  }
  return 0;
}

int32_t qvn_rerate_uninit() {
  delete g_rerate_ctrl;
  g_rerate_ctrl = nullptr;
  return 0;
}

int32_t qvn_rerate_task_get(PGconn* connection, db_info* database) {
  if (g_rerate_ctrl->queue.count() > g_core_ctrl->max_rerate_task) {
    QVN_LOG(kLogWarning, "Maximum rerate task in progress, can't start a new rerate task\n");
    return 1;
  }
  return qvn_pg_select(connection, kRerateJobQuery,
                       [database](const pg_row& row) { rerate_task_create(row, *database); });
}

const std::string& qvn_rerate_cdr_directory() {
  return g_rerate_ctrl->cdr_directory;
}

int32_t read_rerate_config(const char* key, const char* value) {
  return qvn_setting_read(kSettings, key, value);
}
