#include "rate_upload/qvn_rate_upload.h"

#include <cstring>
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
    []() -> uint16_t& { return g_core_ctrl->max_rate_upload_task; },
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

// --- one row of the job table
// ------------------------------------------------------------------------

/// The columns of the job query, in its order.
enum job_column : int {
  kId,
  kUploadFilePath,
  kUploadFormatFile,
  kRateTableId,
  kRateTableCodeDeckId,
  kRateDateFormat,
  kRateEndDate,
  kReduplicateRateAction,
  kCodeDeckFlag,
  kUseOcnLataCode,
  kJobColumns,
};

/// Without trailing blanks and without one trailing slash, but "/" stays.
std::string trimmed_path(const char* column) {
  std::string path = column;
  qvn_trim_suffix_blank(path.data());
  path.resize(std::strlen(path.c_str()));
  if (path.size() >= 2 && path.back() == '/') {
    path.pop_back();
  }
  return path;
}

/// Throws std::bad_alloc when memory runs out.
std::unique_ptr<rate_upload_task> make_task(const pg_row& row, const db_info& database) {
  const auto text_of = [&](job_column column) { return row.text(column); };
  auto task = std::make_unique<rate_upload_task>();
  task->id = row.number<uint32_t>(kId);
  task->upload_file_path = trimmed_path(text_of(kUploadFilePath));
  task->upload_format_file = text_of(kUploadFormatFile);
  task->rate_table_id = text_of(kRateTableId);
  task->rate_table_code_deck_id = text_of(kRateTableCodeDeckId);
  task->rate_date_format = text_of(kRateDateFormat);
  task->rate_end_date = text_of(kRateEndDate);
  task->reduplicate_rate_action = row.number<int32_t>(kReduplicateRateAction);
  task->code_deck_flag = row.number<uint8_t>(kCodeDeckFlag);
  task->use_ocn_lata_code = row.number<uint8_t>(kUseOcnLataCode);
  task->start_time = std::time(nullptr);
  task->conninfo = database.conninfo;
  task->label = qvn_db_key_make(database.host, database.name).text;
  return task;
}

// --- admission
// ---------------------------------------------------------------------------------------

enum verdict : int32_t { kAdmitted = 0, kSameJob = 1, kSameRateTable = 2 };

/// Two jobs without a rate table are not duplicates: each is refused for itself later.
bool same_rate_table(const qvn_job& fresh, const qvn_job* other) {
  if (!other || other->label != fresh.label) {
    return false;
  }
  const std::string& table = static_cast<const rate_upload_task&>(fresh).rate_table_id;
  return !table.empty() && static_cast<const rate_upload_task*>(other)->rate_table_id == table;
}

int32_t judge(const qvn_job& fresh, const qvn_job* first_waiting, const qvn_job* first_running) {
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
  const std::string rate_table_id = task->rate_table_id;
  switch (g_rate_upload_ctrl->queue.add(std::move(task), judge)) {
    case kSameJob:
      QVN_LOG(kLogInfo, "%s rate upload task %d have been in process\n", label.text,
              static_cast<int>(id));
      break;
    case kSameRateTable:
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
  if (!row.has_columns(kJobColumns)) {
    return;
  }
  try {
    enqueue(make_task(row, database), database);
  } catch (const std::bad_alloc&) {
    QVN_LOG(kLogError,
            "Alloc memory for rate upload task failed, dbhost %s, dbname %s, task id %s\n",
            database.host.c_str(), database.name.c_str(), row.text(kId));
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
