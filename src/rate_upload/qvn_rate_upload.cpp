#include "rate_upload/qvn_rate_upload.h"

#include "base/qvn_log.h"
#include "core/qvn_settings.h"
#include "db/qvn_job_module.h"
#include "rate_upload/rate_upload_task.h"

namespace {

constexpr const char* kLogSource = "qvn_rate_upload";

constexpr qvn_job_module_config kConfig = {
    .queue = {.source = kLogSource,
              .dispatcher_name = "qvn_import",
              .worker_name = "import",
              .left =
                  [](const qvn_job& job) { db_info_task_sub(job.label, job_kind::rate_upload); }},
    .kind = "rate upload",
    .directory = "/result_log/",
    .query = kRateUploadJobQuery,
    .columns = kRateUploadJobColumns,
    .most_jobs = &qvn_core_ctrl::max_rate_upload_task,
    .count = &db_info::rate_upload_count,
};

qvn_job_module* g_rate_upload_ctrl = nullptr;

constexpr qvn_number_setting kMaxTask = {
    kLogSource,
    qvn_core_store<&qvn_core_ctrl::max_rate_upload_task>,
    5,
    300,
    "The max concurrent rate upload task item MUST be configurate\n",
    "The max concurrent rate upload task MUST be in 5 - 300\n"};

int32_t read_directory(const char* value) {
  return qvn_conf_read_directory(g_rate_upload_ctrl->directory, value,
                                 "The basic directory of result file item MUST be configurate\n",
                                 kLogSource);
}

constexpr qvn_setting kSettings[] = {
    {"result_directory", read_directory, nullptr, kMostDirectoryCharacters},
    {"max_rate_upload_task", qvn_conf_read_number<kMaxTask>, &kMaxTask},
};

constexpr int32_t kSameRateTable = 2;

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
  const int32_t verdict = qvn_job_module::same_job(fresh, first_waiting, first_running);
  const bool same_table =
      same_rate_table(fresh, first_waiting) || same_rate_table(fresh, first_running);
  return verdict == 0 && same_table ? kSameRateTable : verdict;
}

void rate_upload_task_create(const pg_row& row, db_info& database) {
  auto task = std::make_unique<rate_upload_task>(rate_upload_row_read(row));
  const std::string rate_table_id = task->row.rate_table_id;
  if (g_rate_upload_ctrl->add(std::move(task), database, judge) == kSameRateTable) {
    // The label comes first, although the line reads the other way round.
    QVN_LOG(kLogInfo,
            "The rate table %s of %s have been in rate import process, wait other task complete\n",
            qvn_db_key_make(database.host, database.name).text, rate_table_id.c_str());
  }
}

}  // namespace

int32_t qvn_rate_upload_init() {
  return qvn_job_module::init(g_rate_upload_ctrl, kConfig);
}

qvn_conf_section qvn_rate_upload_section() {
  return {"rate_upload", kSettings, read_rate_upload_config};
}

int32_t qvn_rate_upload_conf() {
  return qvn_load_section(qvn_rate_upload_section());
}

int32_t qvn_rate_upload_start() {
  return g_rate_upload_ctrl->start();
}

int32_t qvn_rate_upload_exit() {
  return qvn_job_module::exit(g_rate_upload_ctrl);
}

int32_t qvn_rate_upload_uninit() {
  return qvn_job_module::uninit(g_rate_upload_ctrl);
}

int32_t qvn_rate_upload_task_get(PGconn* connection, db_info* database) {
  return g_rate_upload_ctrl->pick(connection, *database, rate_upload_task_create);
}

const std::string& qvn_rate_upload_result_directory() {
  return g_rate_upload_ctrl->directory;
}

int32_t read_rate_upload_config(const char* key, const char* value) {
  return qvn_setting_read(kSettings, key, value);
}
