/// What the daemon finds around its configuration: its folders, its console's port, the time zone.
///
/// `g_core_ctrl->install_dir` names the folder; the rest of the record is as the main file has set
/// it.
#pragma once

#include "tools/conf_main_file.h"

/// Whether the folder is one that a daemon runs in: its executable lies there.
[[nodiscard]] bool conf_is_installation();

/// Run by root, becomes the user whom the folder `run` belongs to, for good: what that user may not
/// read or write the daemon may not either. Nothing without an installation.
void conf_become_daemons_user();

/// Whether a daemon runs in the installation, as the lock on its pid file shows.
[[nodiscard]] bool conf_daemon_runs();

/// Reports, and prints, which folders the daemon cannot use, and a time zone other than UTC.
[[nodiscard]] tool_status conf_check_installation(const conf_result_folders& results);
