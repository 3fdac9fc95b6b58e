/// A connection that has logged in, in a thread of its own.
#pragma once

#include "cli/cli_connection.h"

/// Hands the connection over to its thread, which frees it. Closed, freed and not counted when the
/// thread cannot be started, which is logged. Listener thread.
void cli_session_start(cli_connection* connection) QVN_EXCLUDES(g_cli_server_ctrl->mutex);
