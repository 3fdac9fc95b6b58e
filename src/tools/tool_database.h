/// A database of the daemon, for tools that read it.
#pragma once

#include <string>

#include "db/qvn_pg_connection.h"

/// Connects to the database of that section of the database list, as the daemon does; the server
/// refuses every change that is sent. Null when there is none, with the reason in `failure`. The
/// label is for the server's administrator. Needs a tool_core. Throws std::bad_alloc when memory
/// runs out.
[[nodiscard]] pg_connection tool_connect(const std::string& section, const char* label,
                                         std::string& failure);
