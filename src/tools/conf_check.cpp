#include "tools/conf_check.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "core/qvn_core_ctrl.h"
#include "tools/conf_connect.h"
#include "tools/conf_database_list.h"
#include "tools/conf_findings.h"
#include "tools/conf_main_file.h"

namespace {

/// Reading anything but a plain file could block or never end.
bool can_be_read(conf_findings& findings) {
  struct stat status {};
  const char* const path = findings.path().c_str();
  if (stat(path, &status) != 0 || access(path, R_OK) != 0) {
    findings.add(0, std::strerror(errno), kUnusable);
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    findings.add(0, "not a plain file", kUnusable);
    return false;
  }
  return true;
}

tool_status check_main_file() {
  conf_findings findings(g_core_ctrl->conf_dir + kMainConfFile);
  if (can_be_read(findings)) {
    conf_check_main_file(findings);
  }
  findings.print();
  return findings.status();
}

tool_status check_databases(bool connect) {
  conf_findings findings(g_core_ctrl->conf_dir + kDbConfFile);
  std::vector<conf_database> databases;
  if (can_be_read(findings)) {
    databases = conf_check_database_list(findings);
  }
  for (const conf_database& database : databases) {
    if (connect) {
      conf_check_connection(database, findings);
    }
  }
  findings.print();
  return findings.status();
}

}  // namespace

tool_status conf_check(bool connect) {
  const tool_status main_file = check_main_file();
  return std::max(main_file, check_databases(connect));
}
