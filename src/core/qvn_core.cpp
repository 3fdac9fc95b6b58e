#include "core/qvn_core.h"

#include <atomic>
#include <cstring>
#include <new>
#include <poll.h>

#include "base/qvn_hash.h"
#include "base/qvn_log.h"
#include "cli/qvn_cli_server.h"
#include "core/qvn_core_ctrl.h"
#include "db/qvn_db_conf.h"
#include "db/qvn_task.h"
#include "rate_upload/qvn_rate_upload.h"
#include "rerate/qvn_rerate.h"

namespace {

constexpr const char* kLogSource = "qvn_core";

std::atomic<uint8_t> g_core_exit = 0;  ///< 1 makes the run loop return
sigset_t g_wait_mask;                  ///< signals blocked while the run loop waits

using module_step = int32_t (*)();

int32_t create_db_table() {
  const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
  auto* const table = new (std::nothrow) qvn_hash_table;
  if (!table) {
    QVN_LOG(kLogError, "Alloc memory for client db info hash table failed\n");
    return -1;
  }
  qvn_hash_init(table);
  g_core_ctrl->db_table = table;
  return 0;
}

/// Runs the steps in order; stops at the first failure.
template <std::size_t Count>
int32_t run_steps(const module_step (&steps)[Count]) {
  for (const module_step step : steps) {
    if (step() != 0) {
      return -1;
    }
  }
  return 0;
}

int32_t configure(module_step step, const char* label) {
  if (step() == 0) {
    return 0;
  }
  QVN_LOG(kLogWarning, "Loading %s configuration failed\n", label);
  return -1;
}

void free_db_table() {
  const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
  if (g_core_ctrl->db_table) {
    db_info_clear();
    delete g_core_ctrl->db_table;
    g_core_ctrl->db_table = nullptr;
  }
}

}  // namespace

int32_t qvn_core_init() {
  QVN_LOG(kLogNotice, "Start all module initial...\n");
  return run_steps(
      {create_db_table, qvn_cli_server_init, qvn_task_init, qvn_rerate_init, qvn_rate_upload_init});
}

int32_t qvn_core_module_conf() {
  QVN_LOG(kLogNotice, "Start loading moule configuration\n");
  if (configure(load_db_info, "Database list") != 0 || configure(qvn_rerate_conf, "Rerate") != 0) {
    return -1;
  }
  return configure(qvn_rate_upload_conf, "Rate Upload");
}

int32_t qvn_core_start() {
  static constexpr struct {
    module_step start;
    const char* label;
  } kModules[] = {{qvn_cli_server_start, "CLI server"},
                  {qvn_rerate_start, "Rerate"},
                  {qvn_rate_upload_start, "Rate upload"},
                  {qvn_task_start, "Job poller"}};
  QVN_LOG(kLogNotice, "Start running...\n");
  for (const auto& module : kModules) {
    if (const int error = module.start(); error != 0) {
      QVN_LOG(kLogError, "%s thread can't be started, %s\n", module.label, std::strerror(error));
      return -1;
    }
  }
  return 0;
}

int32_t qvn_core_run() {
  constexpr timespec kLookAtExitFlag{2, 0};
  (void)qvn_log_set_level(g_core_ctrl->log_level);
  qvn_log_set_size(g_core_ctrl->max_log_size);
  while (g_core_exit == 0) {
    (void)ppoll(nullptr, 0, &kLookAtExitFlag, &g_wait_mask);  // a sleep that signals may cut short
  }
  return 0;
}

int32_t qvn_core_set_exit() {
  QVN_LOG(kLogNotice, "Waiting for %s exit...\n", kProgramName);
  g_core_exit = 1;
  return 0;
}

void qvn_core_exit() {
  (void)qvn_cli_server_exit();
  (void)qvn_task_exit();
  (void)qvn_rerate_exit();
  (void)qvn_rate_upload_exit();
  qvn_log_exit();
}

void qvn_core_uninit() {
  (void)qvn_cli_server_uninit();
  (void)qvn_rate_upload_uninit();
  (void)qvn_rerate_uninit();
  (void)qvn_task_uninit();
  qvn_log_uninit();
  (void)qvn_log_file_close();
  qvn_core_free();
}

void qvn_core_free() {
  if (!g_core_ctrl) {
    return;
  }
  free_db_table();
  delete g_core_ctrl;
  g_core_ctrl = nullptr;
}

void qvn_core_set_wait_mask(const sigset_t& mask) {
  g_wait_mask = mask;
}
