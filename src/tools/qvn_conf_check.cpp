/// qvn_conf_check from its command line to its end.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <getopt.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/conf_connect.h"
#include "tools/conf_database_list.h"
#include "tools/conf_findings.h"
#include "tools/conf_installation.h"
#include "tools/tool_core.h"
#include "tools/tool_main.h"

namespace {

constexpr const char* kUsage = "Usage: qvn_conf_check [--connect] [HOME_OR_CONF_DIR]\n";

constexpr const char* kHelp =
    "Reads qvn_web_helper.conf and qvn_db_info.conf as qvn_web_helper reads them, and prints, as\n"
    "\"FILE:LINE: text\", every line that it would ignore, refuse, cut or take as something else.\n"
    "Where the daemon's executable lies beside conf, also what it cannot use: its folders, its\n"
    "console's port. Run by root, it looks as the user whom run belongs to.\n"
    "No password is ever printed.\n"
    "\n"
    "  HOME_OR_CONF_DIR  the daemon's folder, or its conf folder; the folder of this program when\n"
    "                    none is given\n"
    "  -c, --connect     also connect to each database as the daemon does, for at most\n"
    "                    PGCONNECT_TIMEOUT seconds (5 when not set), and have the server explain\n"
    "                    every statement of the daemon; prints the GRANTs that are missing;\n"
    "                    nothing is changed\n"
    "  -h, --help        print this and exit\n"
    "  -V, --version     print the version and exit\n"
    "\n"
    "Exit status: 0 there is nothing to say, or notes only; 1 something would be ignored, refused\n"
    "or cut, a folder or a database fails; 2 the daemon would not start, or a file cannot be "
    "used.\n"
    "A daemon that runs already is no fault.\n";

constexpr option kOptions[] = {{"connect", no_argument, nullptr, 'c'},
                               {"help", no_argument, nullptr, 'h'},
                               {"version", no_argument, nullptr, 'V'},
                               {nullptr, 0, nullptr, 0}};

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

/// Has one file checked and prints the findings.
template <class Check>
tool_status check_file(const char* name, Check check) {
  conf_findings findings(g_core_ctrl->conf_dir + name);
  if (can_be_read(findings)) {
    check(findings);
  }
  findings.print();
  return findings.status();
}

/// Reads both files and looks at what is around them, prints the findings, and, if asked, tries the
/// connection of each database.
tool_status conf_check(bool connect) {
  conf_result_folders results;
  const tool_status main_file = check_file(
      kMainConfFile, [&](conf_findings& findings) { results = conf_check_main_file(findings); });
  const tool_status list = check_file(kDbConfFile, [&](conf_findings& findings) {
    for (const conf_database& database : conf_check_database_list(findings)) {
      if (connect) {
        conf_check_connection(database, findings);
      }
    }
  });
  const bool in_place = conf_is_installation() && !results.imports.empty();
  return std::max({main_file, list, in_place ? conf_check_installation(results) : kNothingToSay});
}

tool_status run(int count, char** words) {
  bool connect = false;
  for (int letter = 0; (letter = getopt_long(count, words, "chV", kOptions, nullptr)) != -1;) {
    if (letter != 'c') {
      return tool_answer(letter, "qvn_conf_check", kUsage, kHelp);
    }
    connect = true;
  }
  if (count - optind > 1) {
    return tool_usage_error(kUsage);
  }
  const tool_core core(optind < count ? words[optind] : nullptr);
  conf_become_daemons_user();
  return conf_check(connect);
}

}  // namespace

int main(int count, char** words) {
  return tool_main("qvn_conf_check", [&] { return run(count, words); });
}
