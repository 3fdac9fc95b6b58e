#include "core/qvn_core.h"

#include <atomic>
#include <cstring>
#include <poll.h>

#include "base/qvn_log.h"
#include "core/qvn_core_ctrl.h"

namespace {

constexpr const char* kLogSource = "qvn_core";

std::atomic<uint8_t> g_core_exit = 0;  ///< 1 makes the run loop return
qvn_core_phases g_phases;

}  // namespace

void qvn_core_set_phases(const qvn_core_phases& phases) {
  g_phases = phases;
}

int32_t qvn_core_init() {
  QVN_LOG(kLogNotice, "Start all module initial...\n");
  for (const qvn_core_step& step : g_phases.init) {
    if (step.run() != 0) {
      return -1;
    }
  }
  return 0;
}

int32_t qvn_core_module_conf() {
  QVN_LOG(kLogNotice, "Start loading moule configuration\n");
  for (const qvn_core_step& step : g_phases.conf) {
    if (step.run() != 0) {
      QVN_LOG(kLogWarning, "Loading %s configuration failed\n", step.label);
      return -1;
    }
  }
  return 0;
}

int32_t qvn_core_start() {
  QVN_LOG(kLogNotice, "Start running...\n");
  for (const qvn_core_step& step : g_phases.start) {
    if (const int error = step.run(); error != 0) {
      QVN_LOG(kLogError, "%s thread can't be started, %s\n", step.label, std::strerror(error));
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
    (void)ppoll(nullptr, 0, &kLookAtExitFlag,
                &g_phases.wait_mask);  // a sleep that signals may cut short
  }
  return 0;
}

int32_t qvn_core_set_exit() {
  QVN_LOG(kLogNotice, "Waiting for %s exit...\n", kProgramName);
  g_core_exit = 1;
  return 0;
}

void qvn_core_exit() {
  for (const qvn_core_step& step : g_phases.exit) {
    (void)step.run();
  }
  qvn_log_exit();
}

void qvn_core_uninit() {
  for (const qvn_core_step& step : g_phases.uninit) {
    (void)step.run();
  }
  qvn_log_uninit();
  (void)qvn_log_file_close();
  qvn_core_free();
}

void qvn_core_free() {
  if (!g_core_ctrl) {
    return;
  }
  {
    const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
    g_core_ctrl->db_table.reset();
  }
  delete g_core_ctrl;
  g_core_ctrl = nullptr;
}
