#include "tools/conf_installation.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/qvn_fd.h"
#include "core/qvn_core_ctrl.h"

namespace {

std::string in_installation(const std::string& name) {
  return g_core_ctrl->install_dir + "/" + name;
}

std::string pid_file() {
  return in_installation("run/" + std::string(kProgramName) + ".pid");
}

/// Why files cannot be made in the folder; empty when they can. `is_made`: the daemon makes the
/// folder, and those above it, when it is not there.
std::string objection_to(const std::filesystem::path& folder, bool is_made) {
  struct stat status {};
  if (stat(folder.c_str(), &status) != 0) {
    const bool goes_up = is_made && errno == ENOENT && folder.has_relative_path();
    return goes_up ? objection_to(folder.parent_path(), true) : std::strerror(errno);
  }
  if (!S_ISDIR(status.st_mode)) {
    return std::strerror(ENOTDIR);
  }
  return access(folder.c_str(), W_OK | X_OK) == 0 ? "" : std::strerror(errno);
}

/// The same of a file that the daemon opens, or makes when it is not there.
std::string objection_to_file(const std::string& path) {
  return access(path.c_str(), R_OK | W_OK) == 0 || errno == ENOENT ? "" : std::strerror(errno);
}

tool_status report(const std::string& path, const std::string& objection, const char* failure,
                   tool_status status = kFindings) {
  conf_findings findings(path);
  if (!objection.empty()) {
    findings.add(0, objection + ": " + failure, status);
  }
  findings.print();
  return findings.status();
}

tool_status check_folder(const char* name, const std::string& file, const char* failure,
                         tool_status status) {
  const std::string folder = in_installation(name);
  const std::string objection = objection_to(folder, false);
  return objection.empty() ? report(file, objection_to_file(file), failure, status)
                           : report(folder, objection, failure, status);
}

tool_status check_results(const std::string& folder, const char* failure) {
  if (!folder.starts_with('/')) {
    return report(folder, "not an absolute path", "it begins where the daemon is started");
  }
  return report(folder, objection_to(folder, true), failure);
}

/// Seconds east of UTC on that day of this year.
long offset_on(int month, int day) {
  const std::time_t now = std::time(nullptr);
  std::tm date{};
  (void)localtime_r(&now, &date);
  date.tm_mon = month - 1;
  date.tm_mday = day;
  const std::time_t then = std::mktime(&date);
  (void)localtime_r(&then, &date);
  return date.tm_gmtoff;
}

void note_time_zone() {
  conf_findings findings("TZ");
  if (offset_on(1, 1) != 0 || offset_on(7, 1) != 0) {
    findings.note(0, "local time here is not UTC: start the daemon with TZ=UTC");
  }
  findings.print();
}

/// With the groups that the user has when the daemon is started, and the home, where libpq looks
/// for certificates.
void become(uid_t user, gid_t group) {
  const passwd* const entry = getpwuid(user);
  const gid_t main_group = entry ? entry->pw_gid : group;
  (void)setenv("HOME", entry ? entry->pw_dir : "/", 1);
  (void)(entry ? initgroups(entry->pw_name, main_group) : setgroups(1, &main_group));
  (void)(setgid(main_group) == 0 && setuid(user) == 0);
}

}  // namespace

bool conf_is_installation() {
  return !g_core_ctrl->install_dir.empty() &&
         access(in_installation(kProgramName).c_str(), F_OK) == 0;
}

void conf_become_daemons_user() {
  struct stat status {};
  if (geteuid() == 0 && conf_is_installation() &&
      stat(in_installation("run").c_str(), &status) == 0 && status.st_uid != 0) {
    become(status.st_uid, status.st_gid);
  }
}

bool conf_daemon_runs() {
  const qvn_fd file(open(pid_file().c_str(), O_RDONLY | O_CLOEXEC));
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return file.is_open() && fcntl(file.get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

tool_status conf_check_installation(const conf_result_folders& results) {
  const std::string log_file = g_core_ctrl->log_dir + kProgramName + ".log";
  note_time_zone();
  return std::max({check_folder("run", pid_file(), "the daemon does not start", kUnusable),
                   check_folder("log", log_file, "the daemon runs without a log", kFindings),
                   check_results(results.imports, "every import fails"),
                   check_results(results.reratings, "reratings finish without files")});
}
