#include "rate_upload/qvn_rate_upload.h"

#include <ctime>
#include <memory>
#include <new>

#include "base/qvn_log.h"
#include "base/qvn_text.h"
#include "core/qvn_settings.h"
#include "db/qvn_db_conf.h"
#include "db/qvn_job_queue.h"
#include "db/qvn_pg_rows.h"
#include "rate_upload/rate_upload_task.h"

namespace {

constexpr const char* kLogSource = "qvn_rate_upload";

constexpr qvn_job_queue_config kQueueConfig = {
    .source = kLogSource,
    .dispatcher_name = "qvn_import",
    .worker_name = "import",
    .left = [](const qvn_job& job) { db_info_task_sub(job.label, job_kind::rate_upload); },
};

struct qvn_rate_upload_ctrl {
  std::string result_directory;  ///< ends in "/"
  qvn_job_queue queue{kQueueConfig};
};

qvn_rate_upload_ctrl* g_rate_upload_ctrl = nullptr;

constexpr qvn_number_setting kMaxTask = {
    kLogSource,
    qvn_core_store<&qvn_core_ctrl::max_rate_upload_task>,
    5,
    300,
    "The max concurrent rate upload task item MUST be configurate\n",
    "The max concurrent rate upload task MUST be in 5 - 300\n"};

int32_t read_directory(const char* value) {
  return qvn_conf_read_directory(g_rate_upload_ctrl->result_directory, value,
                                 "The basic directory of result file item MUST be configurate\n",
                                 kLogSource);
}

constexpr qvn_setting kSettings[] = {
    {"result_directory", read_directory, nullptr, kMostDirectoryCharacters},
    {"max_rate_upload_task", qvn_conf_read_number<kMaxTask>, &kMaxTask},
};

/// Throws std::bad_alloc when memory runs out.
std::unique_ptr<rate_upload_task> make_task(const pg_row& row, const db_info& database) {
  auto task = std::make_unique<rate_upload_task>(rate_upload_row_read(row));
  task->start_time = std::time(nullptr);
  task->conninfo = database.conninfo;
  task->label = qvn_db_key_make(database.host, database.name).text;
  return task;
}

enum verdict : int32_t { kAdmitted = 0, kSameJob = 1, kSameRateTable = 2 };

/// A second import of a rate table would not see the rates of the first. Jobs without a rate table
/// are not duplicates: each is refused for itself later.
bool same_rate_table(const qvn_job& fresh, const qvn_job* other) {
  if (!other || other->label != fresh.label) {
    return false;
  }
  const std::string& table = static_cast<const rate_upload_task&>(fresh).row.rate_table_id;
  return !table.empty() && static_cast<const rate_upload_task*>(other)->row.rate_table_id == table;
}

int32_t judge(const qvn_job& fresh, const qvn_job* first_waiting, const qvn_job* first_running) {
  // All of the first test before the second: the log names the job, not its rate table.
  if (fresh.is_same_as(first_waiting) || fresh.is_same_as(first_running)) {
    return kSameJob;
  }
  if (same_rate_table(fresh, first_waiting) || same_rate_table(fresh, first_running)) {
    return kSameRateTable;
  }
  return kAdmitted;
}

void enqueue(std::unique_ptr<rate_upload_task> task, db_info& database) {
  // What the log lines show is kept, as the queue owns the task from here on.
  const uint32_t id = task->id;
  const qvn_db_key label = qvn_db_key_make(database.host, database.name);
  const std::string rate_table_id = task->row.rate_table_id;
  switch (g_rate_upload_ctrl->queue.add(std::move(task), judge)) {
    case kSameJob:
      QVN_LOG(kLogInfo, "%s rate upload task %d have been in process\n", label.text,
              static_cast<int>(id));
      break;
    case kSameRateTable:  // the label comes first, although the line reads the other way round
      QVN_LOG(kLogInfo,
              "The rate table %s of %s have been in rate import process, wait other task "
              "complete\n",
              label.text, rate_table_id.c_str());
      break;
    default:
      ++database.rate_upload_count;
      QVN_LOG(kLogNotice, "Added %s rate upload task %d, concurrent task count %d\n", label.text,
              static_cast<int>(id), database.rate_upload_count);
      break;
  }
}

void rate_upload_task_create(const pg_row& row, db_info& database) {
  if (!row.has_columns(kRateUploadJobColumns)) {
    return;
  }
  try {
    enqueue(make_task(row, database), database);
  } catch (const std::bad_alloc&) {
    QVN_LOG(kLogError,
            "Alloc memory for rate upload task failed, dbhost %s, dbname %s, task id %s\n",
            database.host.c_str(), database.name.c_str(), row.text(0));
  }
}

}  // namespace

int32_t qvn_rate_upload_init() {
  try {
    auto ctrl = std::make_unique<qvn_rate_upload_ctrl>();
    ctrl->result_directory = g_core_ctrl->install_dir + "/result_log/";
    g_rate_upload_ctrl = ctrl.release();
  } catch (const std::bad_alloc&) {
    QVN_LOG(kLogError, "Alloc memory for rate upload task control failed\n");
    return -1;
  }
  return 0;
}

qvn_conf_section qvn_rate_upload_section() {
  return {"rate_upload", kSettings, read_rate_upload_config};
}

int32_t qvn_rate_upload_conf() {
  return qvn_load_section(qvn_rate_upload_section());
}

int32_t qvn_rate_upload_start() {
  return g_rate_upload_ctrl->queue.start();
}

int32_t qvn_rate_upload_exit() {
  if (g_rate_upload_ctrl) {
    g_rate_upload_ctrl->queue.stop();
  }
  return 0;
}

int32_t qvn_rate_upload_uninit() {
  delete g_rate_upload_ctrl;
  g_rate_upload_ctrl = nullptr;
  return 0;
}

int32_t qvn_rate_upload_task_get(PGconn* connection, db_info* database) {
  // At the limit a poll still picks up what it finds; above it, nothing.
  if (g_rate_upload_ctrl->queue.count() > g_core_ctrl->max_rate_upload_task) {
    QVN_LOG(kLogWarning,
            "Maximum rate upload task in progress, can't start a new rate upload task\n");
    return 1;
  }
  return qvn_pg_select(connection, kRateUploadJobQuery,
                       [database](const pg_row& row) { rate_upload_task_create(row, *database); });
}

const std::string& qvn_rate_upload_result_directory() {
  return g_rate_upload_ctrl->result_directory;
}

int32_t read_rate_upload_config(const char* key, const char* value) {
  return qvn_setting_read(kSettings, key, value);
}
