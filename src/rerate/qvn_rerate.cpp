#include "rerate/qvn_rerate.h"

#include <ctime>
#include <memory>
#include <new>

#include "base/qvn_log.h"
#include "base/qvn_text.h"
#include "core/qvn_settings.h"
#include "db/qvn_db_conf.h"
#include "db/qvn_job_queue.h"
#include "db/qvn_pg_rows.h"
#include "rerate/rerate_task.h"

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
    []() -> uint16_t& { return g_core_ctrl->max_rerate_task; },
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

// --- one row of the job table
// ------------------------------------------------------------------------

/// The columns of the job query, in its order.
enum job_column : int {
  kId,
  kFromTime,
  kToTime,
  kTimezone,
  kUpdateLrn,
  kUpdateUsJurisdiction,
  kUpdateLocalRate,
  kIngressTrunk,
  kEgressTrunk,
  kLrnServerIp,
  kLrnServerPort,
  kIncludeQ850,
  kJobColumns,
};

/// Throws std::bad_alloc when memory runs out.
std::unique_ptr<rerate_task> make_task(const pg_row& row, const db_info& database) {
  constexpr std::size_t kMostAddressCharacters = 15;
  const auto text_of = [&](job_column column) { return row.text(column); };
  const auto flag_of = [&](job_column column) { return row.number<uint8_t>(column); };
  auto task = std::make_unique<rerate_task>();
  task->id = row.number<uint32_t>(kId);
  task->from_time = row.number<int64_t>(kFromTime);
  task->to_time = row.number<int64_t>(kToTime);
  task->timezone = row.number<int32_t>(kTimezone);
  task->update_lrn = flag_of(kUpdateLrn);
  task->update_us_jurisdiction = flag_of(kUpdateUsJurisdiction);
  task->update_local_rate = flag_of(kUpdateLocalRate);
  task->include_q850 = flag_of(kIncludeQ850);
  task->ingress_trunk_text = text_of(kIngressTrunk);
  task->egress_trunk_text = text_of(kEgressTrunk);
  task->lrn_server_ip = std::string_view(text_of(kLrnServerIp)).substr(0, kMostAddressCharacters);
  task->lrn_server_port = row.number<int32_t>(kLrnServerPort);
  task->start_time = std::time(nullptr);
  task->conninfo = database.conninfo;
  task->label = qvn_db_key_make(database.host, database.name).text;
  return task;
}

// --- admission
// ---------------------------------------------------------------------------------------

int32_t judge(const qvn_job& fresh, const qvn_job* first_waiting, const qvn_job* first_running) {
  return fresh.is_same_as(first_waiting) || fresh.is_same_as(first_running) ? 1 : 0;
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
  if (!row.has_columns(kJobColumns)) {
    return;
  }
  try {
    enqueue(make_task(row, database), database);
  } catch (const std::bad_alloc&) {
    QVN_LOG(kLogError, "Alloc memory for rerate task failed, dbhost %s, dbname %s, task id %s\n",
            database.host.c_str(), database.name.c_str(), row.text(kId));
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
