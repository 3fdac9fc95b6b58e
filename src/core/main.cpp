/// The daemon from its command line to its end, and the modules that it consists of.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "base/qvn_log.h"
#include "cli/qvn_cli_client.h"
#include "cli/qvn_cli_server.h"
#include "core/qvn_core.h"
#include "core/qvn_core_ctrl.h"
#include "core/qvn_pid_file.h"
#include "core/qvn_process.h"
#include "core/qvn_settings.h"
#include "db/qvn_db.h"
#include "db/qvn_db_conf.h"
#include "db/qvn_task.h"
#include "rate_upload/qvn_rate_upload.h"
#include "rerate/qvn_rerate.h"

namespace {

constexpr const char* kLogSource = "main";

// The console goes first and the jobs come last, but where work is handed on: the poller starts
// when its job modules run and stops before they do, so that it hands them nothing while they end.
constexpr qvn_core_step kInit[] = {{qvn_db_conf_init},
                                   {qvn_cli_server_init},
                                   {qvn_task_init},
                                   {qvn_rerate_init},
                                   {qvn_rate_upload_init}};
constexpr qvn_core_step kConf[] = {{load_db_info, "Database list"},
                                   {qvn_rerate_conf, "Rerate"},
                                   {qvn_rate_upload_conf, "Rate Upload"}};
constexpr qvn_core_step kStart[] = {{qvn_cli_server_start, "CLI server"},
                                    {qvn_rerate_start, "Rerate"},
                                    {qvn_rate_upload_start, "Rate upload"},
                                    {qvn_task_start, "Job poller"}};
constexpr qvn_core_step kExit[] = {
    {qvn_cli_server_exit}, {qvn_task_exit}, {qvn_rerate_exit}, {qvn_rate_upload_exit}};
constexpr qvn_core_step kUninit[] = {
    {qvn_cli_server_uninit}, {qvn_rate_upload_uninit}, {qvn_rerate_uninit}, {qvn_task_uninit}};

/// Whom the poller asks for work in each database, in this order.
constexpr qvn_job_picker kPickers[] = {qvn_rerate_task_get, qvn_rate_upload_task_get};

/// Failing to allocate the core record: the shell sees 255.
constexpr int kNoCoreRecord = -1;

struct command_line {
  bool foreground = false;
  bool kill = false;
  bool remote = false;
};

/// Collects the flags. Version, usage and unknown words act the moment they are met and end the
/// process.
command_line read_command_line(int count, char** words) {
  command_line flags;
  for (int i = 1; i < count; ++i) {
    const char* const word = words[i];
    const auto is = [word](const char* option) { return std::strcmp(word, option) == 0; };
    if (is("-nf")) {
      flags.foreground = true;
    } else if (is("-V") || is("-v")) {
      show_version();
      std::exit(EXIT_SUCCESS);
    } else if (is("-kill")) {
      flags.kill = true;
    } else if (std::strncmp(word, "-r", 2) == 0) {
      flags.remote = true;
    } else {  // "-H", "-h" and every unknown word
      show_usage();
      std::exit(EXIT_SUCCESS);
    }
  }
  return flags;
}

/// Returns the exit status.
int report_no_core_record() {
  std::printf("Alloc memory for %s control failure\n", kProgramName);
  return kNoCoreRecord;
}

/// The console's client: reads its settings, runs it, and ends this process with status 0.
[[noreturn]] void qvn_core_remote_connection() {
  (void)std::setvbuf(stdout, nullptr, _IOLBF, 0);  // lines are seen at once, also through a pipe
  (void)qvn_load_cli_config();                     // what is missing stays zero or empty
  // Whatever happens has been reported, and the end is the same.
  (void)qvn_cli_client_init();
  (void)qvn_cli_client_run();
  (void)qvn_cli_client_exit();
  (void)qvn_cli_client_uninit();
  qvn_core_free();
  std::exit(EXIT_SUCCESS);
}

void start_logging(bool foreground) {
  char path[1024];
  (void)std::snprintf(path, sizeof path, "%s%s.log", g_core_ctrl->log_dir.c_str(), kProgramName);
  (void)qvn_log_init();
  // A log that cannot be opened does not keep the jobs from being done.
  (void)qvn_log_file_open(path, g_core_ctrl->log_level, foreground ? 1 : 0);
}

/// Reads and checks the configuration and initialises the modules; false, logged, when the daemon
/// cannot be run.
bool prepare() {
  (void)qvn_default_conf_init();
  QVN_LOG(kLogNotice, "Read configuration...\n");
  if (qvn_load_config() != 0) {
    QVN_LOG(kLogWarning, "Load config failed\n");
    return false;
  }
  if (qvn_check_config() != 0 || !qvn_settings_whole()) {
    QVN_LOG(kLogWarning, "Check config fail\n");
    return false;
  }
  QVN_LOG(kLogNotice, "The current version as %s-%s, Compile on %s\n", kVersionLabel,
          qvn_build_revision(), qvn_build_date());
  return qvn_core_init() == 0 && qvn_core_module_conf() == 0 && qvn_settings_whole();
}

}  // namespace

int main(int count, char** words) {
  qvn_open_standard_descriptors();
  g_core_ctrl = new (std::nothrow) qvn_core_ctrl;
  if (!g_core_ctrl) {
    return report_no_core_record();
  }
  qvn_core_set_phases({kInit, kConf, kStart, kExit, kUninit, qvn_run_loop_mask()});
  qvn_task_set_pickers(kPickers);
  const command_line flags = read_command_line(count, words);
  qvn_enable_coredump();
  if (qvn_core_set_path() != 0) {
    return report_no_core_record();
  }
  if (flags.kill) {
    qvn_core_kill();
  }
  if (flags.remote) {
    qvn_core_remote_connection();
  }
  g_core_ctrl->log_level = kLogDebug;
  system_signal_reset();
  qvn_db_set_connection_defaults();
  if (!flags.foreground) {
    qvn_register_signal_handle();
    daemonize();
  }
  qvn_remember_pid();
  qvn_already_running();
  qvn_lock_running();
  start_logging(flags.foreground);
  if (prepare()) {
    // The run loop is entered even when a module failed to start: the others still serve.
    (void)qvn_core_start();
    (void)qvn_core_run();
  }
  (void)qvn_core_set_exit();
  qvn_core_exit();
  qvn_core_uninit();
  return EXIT_SUCCESS;
}
