/// Whether the daemon could work with a database.
#pragma once

#include "tools/conf_database_list.h"
#include "tools/conf_findings.h"

/// Connects as the daemon does and has the server explain, without changing anything, every
/// statement of both kinds of job. Reports each that it refuses, with what becomes of the jobs and,
/// where a right is missing, with the GRANT. Waits at most two seconds for a locked table.
void conf_check_connection(const conf_database& database, conf_findings& findings);
