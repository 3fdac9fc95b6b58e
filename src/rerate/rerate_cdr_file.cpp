/// The CDR file of one trunk and day.

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "base/qvn_log.h"
#include "base/qvn_text.h"
#include "rerate/rerate_task.h"

namespace {

constexpr const char* kLogSource = "qvn_rerate";

/// Calls without a rate may be all of a day's. A rest now and then lets the log's queue take them.
class not_matched_log {
 public:
  explicit not_matched_log(const rerate_task& task) : id_(static_cast<int>(task.id)) {}

  void tell(const char* session_id, const char* ani, const char* billed_number) {
    constexpr uint32_t kLinesBetweenRests = 10'000;
    constexpr std::chrono::milliseconds kLongestRest{500};
    char text[2048];  // no line of the log is longer
    (void)std::snprintf(text, sizeof text,
                        "Rerate task %d session_id %s ani %s bill_dnis %s not match rate", id_,
                        session_id, ani, billed_number);
    qvn_mask_controls({text, std::strlen(text)});  // a caller's texts write no lines of the log
    QVN_LOG(kLogNotice, "%s\n", text);
    if (++told_ % kLinesBetweenRests == 0) {
      (void)qvn_log_drain(kLongestRest);
    }
  }

 private:
  int id_;
  uint32_t told_ = 0;
};

void log_not_matched(const rerate_task& task, const rerated_calls& calls) {
  not_matched_log log(task);
  calls.each_unmatched([&log](const char* session_id, const char* ani, const char* billed_number) {
    log.tell(session_id, ani, billed_number);
  });
}

/// False, always.
bool refuse(const char* what, const std::string& path, int error) {
  QVN_LOG(kLogWarning, "%s cdr file %s failed, error:%d(%s)\n", what, path.c_str(), error,
          std::strerror(error));
  return false;
}
constexpr const char* kCreate = "Create a";
constexpr const char* kWrite = "Write";

/// Appends the calls to a file that is there.
bool append(const rerated_calls& calls, const qvn_fd& file, const std::string& path) {
  return qvn_fd_copy(calls.lines().file(), file) || refuse(kWrite, path, errno);
}

/// Gives the calls' file its name; what has that name meanwhile is appended to.
bool publish(const rerate_task& task, const rerated_calls& calls, const std::string& name,
             const std::string& path) {
  if (task.folder.give_name(calls.lines().file(), name.c_str())) {
    return true;
  }
  if (errno != EEXIST) {
    return refuse(kCreate, path, errno);
  }
  const qvn_fd file = task.folder.open_own(name.c_str());
  return file.is_open() ? append(calls, file, path) : refuse(kCreate, path, errno);
}

bool write_file(rerate_task& task, call_side side, const rerate_trunk& trunk,
                const std::string& date, const std::string& name, const rerated_calls& calls) {
  const std::string path = task.folder.path() + name;
  if (calls.lines().make_error() != 0) {
    return refuse(kCreate, path, calls.lines().make_error());
  }
  const qvn_fd file = task.folder.open_own(name.c_str());
  if (!file.is_open() && errno != ENOENT) {
    return refuse(kCreate, path, errno);
  }
  rerate_task_progress_update(
      task, qvn_format("Rerate %s %s CDRs", trunk.alias.c_str(), date.c_str()).c_str(),
      rerate_status::rating);
  QVN_LOG(kLogDebug, "Rerate task %d rerate %s %s %s CDRs\n", static_cast<int>(task.id),
          side_name(side), trunk.alias.c_str(), date.c_str());
  log_not_matched(task, calls);
  if (calls.lines().write_error() != 0) {
    return refuse(kWrite, path, calls.lines().write_error());
  }
  return file.is_open() ? append(calls, file, path) : publish(task, calls, name, path);
}

/// Names the file in the job row; false, logged, when the row's list is full.
bool list_file(rerate_task& task, call_side side, const rerate_trunk& trunk,
               const std::string& date, const std::string& name) {
  constexpr std::size_t kFullAt = 2019;  // characters
  const int id = static_cast<int>(task.id);
  if (task.cdr_files.size() >= kFullAt) {
    QVN_LOG(kLogWarning, "Rerate task %d number of CDR file exceeds limits\n", id);
    return false;
  }
  task.cdr_files += name + ",";
  QVN_LOG(kLogDebug, "Rerate task %d rerate %s %s %s CDRs done\n", id, side_name(side),
          trunk.alias.c_str(), date.c_str());
  return true;
}

}  // namespace

int32_t execute_rerating(rerate_task& task, call_side side, const rerate_trunk& trunk,
                         const std::string& date, const rerated_calls& calls) {
  const std::string name =
      qvn_format("%d-%s-%s.cdr", static_cast<int>(task.id), trunk.id.c_str(), date.c_str());
  return write_file(task, side, trunk, date, name, calls) &&
                 list_file(task, side, trunk, date, name)
             ? 0
             : -1;
}
