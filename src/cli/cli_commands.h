/// The commands that the console answers. Connection threads.
#pragma once

#include <string_view>

#include "cli/cli_connection.h"

/// Each forms its whole answer, the database list under its lock, and then sends it. The arguments
/// are not used.
void cmd_help_request_proc(const cli_connection& connection, std::string_view arguments);
void get_conf_request_proc(const cli_connection& connection, std::string_view arguments);
void reload_conf_request_proc(const cli_connection& connection, std::string_view arguments);
