#include "rerate/qvn_rerate.h"

#include "core/qvn_settings.h"
#include "db/qvn_job_module.h"
#include "rerate/rerate_task.h"

namespace {

constexpr const char* kLogSource = "qvn_rerate";

constexpr qvn_job_module_config kConfig = {
    .queue = {.source = kLogSource,
              .dispatcher_name = "qvn_rerate",
              .worker_name = "rerate",
              .left = [](const qvn_job& job) { db_info_task_sub(job.label, job_kind::rerate); }},
    .kind = "rerate",
    .directory = "/rerate_cdr/",
    .query = kRerateJobQuery,
    .columns = kRerateJobColumns,
    .most_jobs = &qvn_core_ctrl::max_rerate_task,
    .count = &db_info::rerate_count,
};

qvn_job_module* g_rerate_ctrl = nullptr;

constexpr qvn_number_setting kMaxTask = {
    kLogSource,
    qvn_core_store<&qvn_core_ctrl::max_rerate_task>,
    5,
    100,
    "The max concurrent rerate task item MUST be configurate\n",
    "The max concurrent rerate task MUST be in 5 - 100\n"};

int32_t read_directory(const char* value) {
  return qvn_conf_read_directory(g_rerate_ctrl->directory, value,
                                 "The directory of cdr file item MUST be configurate\n",
                                 kLogSource);
}

constexpr qvn_setting kSettings[] = {
    {"cdr_directory", read_directory, nullptr, kMostDirectoryCharacters},
    {"max_rerate_task", qvn_conf_read_number<kMaxTask>, &kMaxTask},
};

void rerate_task_create(const pg_row& row, db_info& database) {
  (void)g_rerate_ctrl->add(std::make_unique<rerate_task>(rerate_row_read(row)), database,
                           qvn_job_module::same_job);
}

}  // namespace

int32_t qvn_rerate_init() {
  return qvn_job_module::init(g_rerate_ctrl, kConfig);
}

qvn_conf_section qvn_rerate_section() {
  return {"rerate", kSettings, read_rerate_config};
}

int32_t qvn_rerate_conf() {
  return qvn_load_section(qvn_rerate_section());
}

int32_t qvn_rerate_start() {
  return g_rerate_ctrl->start();
}

int32_t qvn_rerate_exit() {
  return qvn_job_module::exit(g_rerate_ctrl);
}

int32_t qvn_rerate_uninit() {
  return qvn_job_module::uninit(g_rerate_ctrl);
}

int32_t qvn_rerate_task_get(PGconn* connection, db_info* database) {
  return g_rerate_ctrl->pick(connection, *database, rerate_task_create);
}

const std::string& qvn_rerate_cdr_directory() {
  return g_rerate_ctrl->directory;
}

int32_t read_rerate_config(const char* key, const char* value) {
  return qvn_setting_read(kSettings, key, value);
}
