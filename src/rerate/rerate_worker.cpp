/// One rerating in its worker thread, from the connection to the final row.

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <new>

#include "base/qvn_log.h"
#include "base/qvn_text.h"
#include "rate/qvn_rate_table.h"
#include "rerate/qvn_rerate.h"
#include "rerate/rerate_task.h"

namespace {

constexpr const char* kLogSource = "qvn_rerate";
constexpr const char* kLabel = "Rerate Rate";

std::string progress_statement(const rerate_task& task, const char* text, rerate_status status) {
  return qvn_format("UPDATE rerate_cdr_task SET progress = '%s',status=%d where id = %d", text,
                    static_cast<int>(status), static_cast<int>(task.id));
}

bool is_connected(const rerate_task& task) {
  return PQstatus(task.connection.get()) == CONNECTION_OK;
}

bool connect(rerate_task& task) {
  task.connection = qvn_pg_conn(task.conninfo.c_str(), kLabel);
  if (task.connection) {
    return true;
  }
  QVN_LOG(kLogWarning, "%s rerate task %u DB connect failed, wait for restart\n",
          task.label.c_str(), task.id);
  task.fail(rerate_error::connection);
  return false;
}

bool make_output_directory(rerate_task& task) {
  task.folder = qvn_job_folder::make(qvn_rerate_cdr_directory(), task);
  if (!task.folder.path().empty()) {
    return true;
  }
  QVN_LOG(kLogWarning, "%s rerate task %u mkdir CDR path failed, wait for restart\n",
          task.label.c_str(), task.id);
  task.fail(rerate_error::system);
  return false;
}

// --- checks
// ------------------------------------------------------------------------------------------

bool check_range(rerate_task& task) {
  if (task.to_time > task.from_time) {
    return true;
  }
  QVN_LOG(kLogNotice, "Rerate task %d CDR date invalid\n", static_cast<int>(task.id));
  task.fail(rerate_error::invalid_job, "Rerate CDR date invalid");
  return false;
}

bool check_trunks(rerate_task& task) {
  if (rerate_task_trunk_parse(task, call_side::ingress, task.ingress_trunk_text) != 0 ||
      rerate_task_trunk_parse(task, call_side::egress, task.egress_trunk_text) != 0) {
    return false;
  }
  if (!task.ingress_trunks.empty() || !task.egress_trunks.empty()) {
    return true;
  }
  QVN_LOG(kLogNotice, "Rerate task %d not select trunk\n", static_cast<int>(task.id));
  task.fail(rerate_error::invalid_job, "Rerate CDR not select trunk");
  return false;
}

bool check_lrn_server(rerate_task& task) {
  constexpr uint16_t kLowestPort = 1024;
  const auto port = static_cast<uint16_t>(task.lrn_server_port);  // a port has 16 bits
  if (task.update_lrn != 1 || !task.lrn_server_ip.empty() || port >= kLowestPort) {
    return true;
  }
  QVN_LOG(kLogNotice, "Rerate task %d LRN is not setting\n", static_cast<int>(task.id));
  task.fail(rerate_error::invalid_job, "LRN is not setting");
  return false;
}

// --- the days
// ----------------------------------------------------------------------------------------

/// The trees and switches of the task and the settings of the trunk, as they stand for all calls.
pricing_terms terms_of(const rerate_task& task, const rerate_trunk& trunk) {
  const rate_table_settings& table = *trunk.rate_table;
  pricing_terms terms{
      .time_profiles = task.time_profiles,
      .jurisdiction = {.prefix = table.jurisdiction_prefix.c_str(),
                       .prefix_min_length = table.prefix_min_length,
                       .prefix_max_length = table.prefix_max_length,
                       .noprefix_min_length = table.noprefix_min_length,
                       .noprefix_max_length = table.noprefix_max_length},
      .local_rates = task.update_local_rate == 1,
      .rate_decimal = trunk.rate_decimal,
      .rate_rounding = trunk.rate_rounding,
  };
  if (const auto* const rates = rp_hash_match_all(&trunk.rate_tree, trunk.rate_table_id.c_str())) {
    terms.codes = rates->sub;
  }
  if (task.update_us_jurisdiction == 1 && !table.jurisdiction_country_id.empty()) {
    const auto* const country =
        rp_hash_match_all(&task.jurisdictions, table.jurisdiction_country_id.c_str());
    terms.jurisdictions = country ? country->sub : nullptr;
  }
  return terms;
}

/// Loads and rates the day's calls of one trunk; false, with the task failed, when either fails.
bool rerate_trunk_calls(rerate_task& task, call_side side, const rerate_trunk& trunk,
                        const rerate_day& day) {
  rerated_calls calls(task.folder, side, terms_of(task, trunk), trunk.loaded_rate_date,
                      task.column_count());
  if (get_rerate_cdr(task, side, trunk, day, calls) != 0) {
    task.fail(rerate_error::cdr_load, "Rerate task %u get %s %s CDR failed", task.id,
              trunk.alias.c_str(), day.date.c_str());
    return false;
  }
  // The other party's accounting expects a file for every day of an egress trunk, an empty one too.
  if (side == call_side::ingress && calls.count() == 0) {
    return true;
  }
  calls.finish();
  if (execute_rerating(task, side, trunk, day.date, calls) != 0) {
    task.fail(rerate_error::rating, "Rerate task %u rerate %s %s CDR failed", task.id,
              trunk.alias.c_str(), day.date.c_str());
    return false;
  }
  return true;
}

/// One day of all trunks, up to the first that fails.
int32_t rerate_cdr(rerate_task& task, const rerate_day& day) {
  if (!rerate_load_rates_of_day(task, day)) {
    return -1;
  }
  for (const call_side side : {call_side::ingress, call_side::egress}) {
    for (rerate_trunk& trunk : task.trunks(side)) {
      if (trunk.is_rated() && !rerate_trunk_calls(task, side, trunk, day)) {
        return -1;
      }
    }
  }
  return 0;
}

/// Moves a time back by whole hours; wraps around at the ends of 64 bits.
int64_t moved_back(int64_t time, int32_t hours) {
  constexpr int64_t kSecondsAnHour = 3600;
  return static_cast<int64_t>(static_cast<uint64_t>(time) -
                              static_cast<uint64_t>(hours * kSecondsAnHour));
}

/// A day that fails ends only that day's work, and the log alone tells of it: the job goes on with
/// the next day and ends as finished.
void rerate_all_days(rerate_task& task) {
  task.from_time = moved_back(task.from_time, task.timezone);
  task.to_time = moved_back(task.to_time, task.timezone);
  rerate_days days(task.from_time, task.to_time);
  while (const std::optional<rerate_day> day = days.next()) {
    if (rerate_cdr(task, *day) == 0) {
      continue;
    }
    if (!is_connected(task)) {
      QVN_LOG(kLogWarning,
              "Rerate task %u lost its connection, the days from %s on are not rated\n", task.id,
              day->date.c_str());
      task.fail(rerate_error::connection);
      return;
    }
    QVN_LOG(kLogWarning, "Rerate task %u day %s failed, error_code %d, %s\n", task.id,
            day->date.c_str(), static_cast<int>(task.error), task.error_text);
  }
  if (days.failed()) {
    task.fail(rerate_error::system);
  } else {
    task.succeed();
  }
}

// --- beginning and end
// -------------------------------------------------------------------------------

/// A job whose row cannot be written would be done again at each poll: it ends here, before it has
/// written a file, and its row stays as it is.
bool show_begin(rerate_task& task) {
  std::string refusal;
  const std::string sql =
      progress_statement(task, "Loading rate data", rerate_status::loading_rates);
  qvn_db_first_progress(task.connection.get(), sql.c_str(), {kLogSource, __LINE__}, refusal);
  if (refusal.empty()) {
    return true;
  }
  task.connection.reset();
  task.fail(rerate_error::system, "job row can't be written, %s", refusal.c_str());
  return false;
}

/// The steps of a rerating, each with its own way of failing.
void rerate(rerate_task& task) {
  if (!connect(task) || !make_output_directory(task)) {
    return;
  }
  if (!show_begin(task)) {
    return;
  }
  task.start_time = std::time(nullptr);
  if (check_range(task) && check_trunks(task) && check_lrn_server(task) &&
      rerate_load_reference_data(task)) {
    rerate_all_days(task);
  }
}

/// Writes outcome, figures and times into the row and closes the connection. Without a connection
/// the row stays as it is and is offered again by the next poll.
void write_final_row(rerate_task& task) {
  task.status = task.error == rerate_error::none ? rerate_status::finished : rerate_status::failed;
  task.end_time = std::time(nullptr);
  if (!task.connection) {
    return;
  }
  if (task.cdr_files.size() > 1) {
    task.cdr_files.pop_back();  // the last comma
  }
  const std::string sql = qvn_format(
      "update rerate_cdr_task set err_code=%d,progress='%s',status=%d,load_cdr_elapsed_sec=%ld,"
      "load_rate_elapsed_sec=%ld,rerate_elapsed_sec=%ld,start_time=%ld,end_time=%ld,cdr_file='%s',"
      "cdr_file_path='%s' where id=%d",
      static_cast<int>(task.error), task.error_text, static_cast<int>(task.status),
      task.cdr_load_seconds, task.rate_load_seconds, task.rerate_seconds, task.start_time,
      task.end_time, task.cdr_files.c_str(), task.folder.path().c_str(), static_cast<int>(task.id));
  (void)qvn_db_progress(task.connection.get(), sql.c_str(),
                        {kLogSource, __LINE__});  // logged there
  task.connection.reset();
}

void log_outcome(const rerate_task& task) {
  const int id = static_cast<int>(task.id);
  if (task.error != rerate_error::none) {
    QVN_LOG(kLogWarning, "Rerate task %d execution failed, error_code %d, %s\n", id,
            static_cast<int>(task.error), task.error_text);
    return;
  }
  QVN_LOG(kLogNotice, "Rerate task %d have been completed, cdr count %u, elapsed %ld(s)\n", id,
          task.cdr_count, task.end_time - task.start_time);
}

void report_memory_shortage(rerate_task& task) {
  QVN_LOG(kLogError, kRerateAllocFailed, task.id);
  task.fail(rerate_error::system, kRerateMemoryShortage);
}

/// Runs a step and turns a shortage of memory into the job's failure.
void guarded(rerate_task& task, void (*step)(rerate_task&)) {
  try {
    step(task);
  } catch (const std::bad_alloc&) {
    report_memory_shortage(task);
  }
}

}  // namespace

void rerate_task::run() noexcept {
  QVN_LOG(kLogNotice, "Start %s rerate task %u process\n", label.c_str(), id);
  guarded(*this, rerate);
  guarded(*this, write_final_row);
  folder.open_to_all();
  log_outcome(*this);
  release_data();
}

void rerate_task::release_data() {
  (void)rp_hash_destroy(&time_profiles, delete_time_profile_node);
  (void)rp_hash_destroy(&jurisdictions, delete_jurisdiction_prefix_node);
  ingress_trunks.clear();
  egress_trunks.clear();
}

void rerate_task::fail(rerate_error code) {
  error = code;
  error_text[0] = '\0';
}

void rerate_task::succeed() {
  fail(rerate_error::none);
}

void rerate_task::fail(rerate_error code, const char* format, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  (void)std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  error = code;
  error_text[qvn_cut(text, sizeof error_text - 1).copy(error_text, sizeof error_text)] = '\0';
}

const char* side_name(call_side side) {
  return side == call_side::ingress ? "ingress" : "egress";
}

void rerate_task_progress_update(rerate_task& task, const char* text, rerate_status status) {
  const std::string sql = progress_statement(task, text, status);
  (void)qvn_db_progress(task.connection.get(), sql.c_str(), {kLogSource, __LINE__});
}

int32_t rerate_task_trunk_parse(rerate_task& task, call_side side, const std::string& text) {
  constexpr int32_t kInvalid = -1;
  constexpr int32_t kNoMemory = -2;
  try {
    if (rerate_trunk_text_parse(text, task.trunks(side))) {
      return 0;
    }
  } catch (const std::bad_alloc&) {
    report_memory_shortage(task);
    return kNoMemory;
  }
  QVN_LOG(kLogWarning, "rerate task %u %s trunk info invalid, stop it\n", task.id, side_name(side));
  task.fail(rerate_error::invalid_job, "Rerate CDR %s trunk invalid", side_name(side));
  return kInvalid;
}
