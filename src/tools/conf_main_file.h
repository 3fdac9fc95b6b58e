/// The main configuration file.
#pragma once

#include <string>

#include "tools/conf_findings.h"

/// Where the daemon puts results; both end in "/".
struct conf_result_folders {
  std::string imports;
  std::string reratings;
};

/// Reports on the file, and returns the folders that it leads to.
[[nodiscard]] conf_result_folders conf_check_main_file(conf_findings& findings);
