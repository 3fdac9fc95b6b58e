/// Whether the daemon could work with a database.
#pragma once

#include "tools/conf_database_list.h"
#include "tools/conf_findings.h"

/// Connects as the daemon does and asks the server, without changing anything, whether the user may
/// read and write the job tables as the daemon does. Reports the first thing that fails of each.
void conf_check_connection(const conf_database& database, conf_findings& findings);
