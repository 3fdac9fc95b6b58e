/// The main configuration file.
#pragma once

#include "tools/conf_findings.h"

void conf_check_main_file(conf_findings& findings);
