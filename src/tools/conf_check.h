/// Both configuration files through the daemon's own reading, and a report on what it makes of
/// them.
#pragma once

#include "tools/tool_status.h"

/// Reads the files in the configuration directory of the core record, prints the findings, and, if
/// asked, tries the connection of each database. Throws std::bad_alloc when memory runs out.
[[nodiscard]] tool_status conf_check(bool connect);
