#include "rerate/rerate_task.h"

#include <ctime>
#include <new>

#include "base/qvn_log.h"
#include "rerate/qvn_rerate.h"
#include "rerate/rerate_cdr.h"
#include "rerate/rerate_reference.h"

namespace {

constexpr const char* kLogSource = "qvn_rerate";
constexpr const char* kLabel = "Rerate Rate";

// --- beginning -------------------------------------------------------------------------------

rerate_outcome connect_database(rerate_task& task) {
  task.connection = qvn_pg_conn(task.conninfo.c_str(), kLabel);
  if (task.connection) {
    return {};
  }
  QVN_LOG(kLogWarning, "%s rerate task %u DB connect failed, wait for restart\n",
          task.label.c_str(), task.id);
  return {rerate_error::connection};
}

rerate_outcome make_output_directory(rerate_task& task) {
  task.folder = qvn_job_folder::make(qvn_rerate_cdr_directory(), task);
  if (!task.folder.path().empty()) {
    return {};
  }
  QVN_LOG(kLogWarning, "%s rerate task %u mkdir CDR path failed, wait for restart\n",
          task.label.c_str(), task.id);
  return {rerate_error::system};
}

rerate_outcome show_begin(rerate_task& task) {
  const std::string refusal = task.write_first_progress(
      rerate_row_progress_update(task.id, "Loading rate data", rerate_status::loading_rates),
      {kLogSource, __LINE__});
  if (!refusal.empty()) {
    return rerate_fail(rerate_error::system, "%s", refusal.c_str());
  }
  task.start_time = std::time(nullptr);
  return {};
}

// --- checks ----------------------------------------------------------------------------------

rerate_outcome check_range(rerate_task& task) {
  if (task.row.to_time > task.row.from_time) {
    return {};
  }
  QVN_LOG(kLogNotice, "Rerate task %d CDR date invalid\n", static_cast<int>(task.id));
  return rerate_fail(rerate_error::invalid_job, "Rerate CDR date invalid");
}

constexpr int32_t kInvalid = -1;
constexpr int32_t kNoMemory = -2;

/// Makes the trunks of one side. 0; kInvalid, logged; or kNoMemory.
int32_t rerate_task_trunk_parse(rerate_task& task, call_side side, const std::string& text) {
  try {
    if (rerate_trunk_text_parse(text, side, task.reference.trunks)) {
      return 0;
    }
  } catch (const std::bad_alloc&) {
    return kNoMemory;
  }
  QVN_LOG(kLogWarning, "rerate task %u %s trunk info invalid, stop it\n", task.id, side_name(side));
  return kInvalid;
}

rerate_outcome check_trunks(rerate_task& task) {
  for (const call_side side : {call_side::ingress, call_side::egress}) {
    const int32_t result = rerate_task_trunk_parse(
        task, side, side == call_side::ingress ? task.row.ingress_trunks : task.row.egress_trunks);
    if (result == kNoMemory) {
      return rerate_fail_without_memory(task.id);
    }
    if (result != 0) {
      return rerate_fail(rerate_error::invalid_job, "Rerate CDR %s trunk invalid", side_name(side));
    }
  }
  if (!task.reference.trunks.empty()) {
    return {};
  }
  QVN_LOG(kLogNotice, "Rerate task %d not select trunk\n", static_cast<int>(task.id));
  return rerate_fail(rerate_error::invalid_job, "Rerate CDR not select trunk");
}

rerate_outcome check_lrn_server(rerate_task& task) {
  constexpr uint16_t kLowestPort = 1024;
  const auto port = static_cast<uint16_t>(task.row.lrn_server_port);  // a port has 16 bits
  // Either of the two is enough, although a server needs both.
  if (task.row.update_lrn != 1 || !task.row.lrn_server_ip.empty() || port >= kLowestPort) {
    return {};
  }
  QVN_LOG(kLogNotice, "Rerate task %d LRN is not setting\n", static_cast<int>(task.id));
  return rerate_fail(rerate_error::invalid_job, "LRN is not setting");
}

// --- the days --------------------------------------------------------------------------------

/// Moves a time back by whole hours; wraps around at the ends of 64 bits.
int64_t moved_back(int64_t time, int32_t hours) {
  constexpr int64_t kSecondsPerHour = 3600;
  return static_cast<int64_t>(static_cast<uint64_t>(time) -
                              static_cast<uint64_t>(hours * kSecondsPerHour));
}

/// A day that fails ends only that day's work, and only the log shows it: the job goes on with the
/// next day and ends as finished. The portal relies on that.
rerate_outcome rerate_all_days(rerate_task& task) {
  const rerate_row& row = task.row;
  task.range = {moved_back(row.from_time, row.timezone), moved_back(row.to_time, row.timezone)};
  rerate_days days(task.range.from, task.range.to);
  while (const std::optional<rerate_day> day = days.next()) {
    const rerate_outcome outcome = rerate_cdr(task, *day);
    if (!outcome.failed()) {
      continue;
    }
    if (!task.is_connected()) {
      QVN_LOG(kLogWarning,
              "Rerate task %u lost its connection, the days from %s on are not rated\n", task.id,
              day->date.c_str());
      return {rerate_error::connection};
    }
    QVN_LOG(kLogWarning, "Rerate task %u day %s failed, error_code %d, %s\n", task.id,
            day->date.c_str(), static_cast<int>(outcome.error), outcome.text);
  }
  return {days.failed() ? rerate_error::system : rerate_error::none};
}

/// The body of the worker thread: the steps of a rerating, up to the first that fails.
rerate_outcome rerate_task_threand_run(rerate_task& task) {
  // The row is written before the checks: its portal sees that the job has begun.
  for (const auto step :
       {connect_database, make_output_directory, show_begin, check_range, check_trunks,
        check_lrn_server, rerate_load_reference_data, rerate_all_days}) {
    if (const rerate_outcome outcome = step(task); outcome.failed()) {
      return outcome;
    }
  }
  return {};
}

}  // namespace

void rerate_task::work() {
  QVN_LOG(kLogNotice, "Start %s rerate task %u process\n", label.c_str(), id);
  outcome_ = rerate_task_threand_run(*this);
}

/// Also takes the place of the work's outcome, when the final row finds no memory: that one never
/// reached the row.
void rerate_task::report_memory_shortage() {
  outcome_ = rerate_fail_without_memory(id);
}

void rerate_task::write_final_row() {
  const std::string sql =
      rerate_row_final_update(id, outcome_, figures, start_time, end_time, folder.path());
  (void)qvn_db_progress(connection.get(), sql.c_str(), {kLogSource, __LINE__});  // logged there
}

void rerate_task::log_end() const {
  const int shown_id = static_cast<int>(id);
  if (outcome_.failed()) {
    QVN_LOG(kLogWarning, "Rerate task %d execution failed, error_code %d, %s\n", shown_id,
            static_cast<int>(outcome_.error), outcome_.text);
    return;
  }
  QVN_LOG(kLogNotice, "Rerate task %d have been completed, cdr count %u, elapsed %ld(s)\n",
          shown_id, figures.cdr_count, end_time - start_time);
}

void rerate_task_progress_update(rerate_task& task, const std::string& text, rerate_status status,
                                 int line) {
  const std::string sql = rerate_row_progress_update(task.id, text.c_str(), status);
  (void)qvn_db_progress(task.connection.get(), sql.c_str(), {kLogSource, line});
}
