#include "rerate/rerate_cdr_file.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/qvn_log.h"
#include "base/qvn_text.h"

namespace {

constexpr const char* kLogSource = "qvn_rerate";

/// Calls without a rate may be all of a day's. A rest now and then lets the log's queue take them.
void log_not_matched(const rerate_task& task, const rerated_calls& calls) {
  constexpr uint32_t kLinesBetweenRests = 10'000;
  constexpr std::chrono::milliseconds kLongestRest{500};
  const int id = static_cast<int>(task.id);
  uint32_t lines = 0;
  calls.each_unmatched([&](const char* session_id, const char* ani, const char* billed_number) {
    char text[2048];  // no line of the log is longer
    (void)std::snprintf(text, sizeof text,
                        "Rerate task %d session_id %s ani %s bill_dnis %s not match rate", id,
                        session_id, ani, billed_number);
    qvn_mask_controls({text, std::strlen(text)});  // a caller's texts write no lines of the log
    QVN_LOG(kLogNotice, "%s\n", text);
    if (++lines % kLinesBetweenRests == 0) {
      (void)qvn_log_drain(kLongestRest);
    }
  });
  if (lines != calls.unmatched_count()) {
    QVN_LOG(kLogWarning,
            "Rerate task %d %u calls that match no rate are not logged, error:%d(%s)\n", id,
            calls.unmatched_count() - lines, calls.unmatched_error(),
            std::strerror(calls.unmatched_error()));
  }
}

/// Logs the failure as the caller's line. False, always.
bool file_failed(const char* what, const std::string& path, int error,
                 int line = __builtin_LINE()) {
  (void)qvn_log_print(kLogSource, line, kLogWarning, 0, "%s cdr file %s failed, error:%d(%s)\n",
                      what, path.c_str(), error, std::strerror(error));
  return false;
}
constexpr const char* kCreate = "Create a";
constexpr const char* kWrite = "Write";

/// Gives the calls' file its name, or appends the calls to `file`, which has it.
bool publish(const rerate_task& task, const rerated_calls& calls, const std::string& name,
             const std::string& path, qvn_fd file) {
  if (!file.is_open()) {
    if (task.folder.give_name(calls.lines().file(), name.c_str())) {
      return true;
    }
    if (errno == EEXIST) {  // meanwhile
      file = task.folder.open_own(name.c_str());
    }
    if (!file.is_open()) {
      return file_failed(kCreate, path, errno);
    }
  }
  return qvn_fd_copy(calls.lines().file(), file) || file_failed(kWrite, path, errno);
}

bool write_file(rerate_task& task, const rerate_trunk& trunk, const std::string& date,
                const std::string& name, const rerated_calls& calls) {
  const std::string path = task.folder.path() + name;
  if (calls.lines().make_error() != 0) {
    return file_failed(kCreate, path, calls.lines().make_error());
  }
  // Looked for before the progress: a name that leads elsewhere fails the day before it is shown.
  qvn_fd file = task.folder.open_own(name.c_str());
  if (!file.is_open() && errno != ENOENT) {
    return file_failed(kCreate, path, errno);
  }
  rerate_task_progress_update(task,
                              qvn_format("Rerate %s %s CDRs", trunk.alias.c_str(), date.c_str()),
                              rerate_status::rating);
  QVN_LOG(kLogDebug, "Rerate task %d rerate %s %s %s CDRs\n", static_cast<int>(task.id),
          side_name(trunk.side), trunk.alias.c_str(), date.c_str());
  log_not_matched(task, calls);
  if (calls.lines().write_error() != 0) {
    return file_failed(kWrite, path, calls.lines().write_error());
  }
  return publish(task, calls, name, path, std::move(file));
}

/// Names the file in the job row; false, logged, when the row's list is full.
bool list_file(rerate_task& task, const rerate_trunk& trunk, const std::string& date,
               const std::string& name) {
  constexpr std::size_t kFullAt = 2019;  // characters
  const int id = static_cast<int>(task.id);
  if (task.figures.cdr_files.size() >= kFullAt) {
    QVN_LOG(kLogWarning, "Rerate task %d number of CDR file exceeds limits\n", id);
    return false;
  }
  task.figures.cdr_files += name + ",";
  QVN_LOG(kLogDebug, "Rerate task %d rerate %s %s %s CDRs done\n", id, side_name(trunk.side),
          trunk.alias.c_str(), date.c_str());
  return true;
}

}  // namespace

int32_t execute_rerating(rerate_task& task, const rerate_trunk& trunk, const std::string& date,
                         const rerated_calls& calls) {
  const std::string name =
      qvn_format("%d-%s-%s.cdr", static_cast<int>(task.id), trunk.id.c_str(), date.c_str());
  return write_file(task, trunk, date, name, calls) && list_file(task, trunk, date, name) ? 0 : -1;
}
