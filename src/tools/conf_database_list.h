/// The database list.
#pragma once

#include <string>
#include <vector>

#include "tools/conf_findings.h"

/// A section that became a database of the daemon.
struct conf_database {
  std::string section;
  int line;              ///< of the section's header
  std::string conninfo;  ///< as the daemon connects with it
};

/// Returns the databases that the daemon would serve.
[[nodiscard]] std::vector<conf_database> conf_check_database_list(conf_findings& findings);
