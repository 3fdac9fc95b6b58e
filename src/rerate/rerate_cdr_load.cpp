#include "rerate/rerate_cdr_load.h"

#include <ctime>
#include <new>

#include "base/qvn_log.h"

namespace {

constexpr const char* kLogSource = "qvn_rerate";
constexpr const char* kLabel = "Rate CDR";

/// Whether the call was added; no other may be added after one that was lost.
bool rerate_cdr_add(char* line, const rerate_trunk& trunk, rerated_calls& calls) {
  try {
    calls.add(line);
    return true;
  } catch (const std::bad_alloc&) {
    QVN_LOG(kLogError, "Alloc memory for trunk %s rerate cdr failed\n", trunk.id.c_str());
    return false;
  }
}

std::string call_filter(const std::string& condition, const rerate_trunk& trunk) {
  return qvn_format("where (call_duration > 0 and %s%s%s_id='%s')", condition.c_str(),
                    condition.empty() ? "" : " and ", side_name(trunk.side), trunk.id.c_str());
}

void log_begin(const rerate_task& task, const rerate_trunk& trunk, const rerate_day& day,
               const std::string& condition) {
  QVN_LOG(kLogDebug, "Rerate task %d loading %s %s %s CDRs%s%s\n", static_cast<int>(task.id),
          side_name(trunk.side), trunk.alias.c_str(), day.date.c_str(),
          condition.empty() ? "" : ", ", condition.c_str());
}

bool load_calls(rerate_task& task, const rerate_trunk& trunk, const rerate_day& day,
                const std::string& condition, rerated_calls& calls) {
  const std::string sql = rerate_calls_copy(trunk, day, condition, task.row.include_q850 == 1);
  bool complete = true;
  const pg_copy_end end = qvn_pg_copy_lines(
      task.connection.get(), sql.c_str(), kLabel,
      [&](char* line) { complete = complete && rerate_cdr_add(line, trunk, calls); });
  return end == pg_copy_end::whole && complete;
}

}  // namespace

std::string rerate_time_condition(const rerate_day& day) {
  std::string condition;
  if (!day.lower.empty()) {
    condition = qvn_format("time >= '%s'", day.lower.c_str());
  }
  if (!day.upper.empty()) {
    condition += qvn_format("%stime <= '%s'", condition.empty() ? "" : " and ", day.upper.c_str());
  }
  return condition;
}

std::string rerate_calls_copy(const rerate_trunk& trunk, const rerate_day& day,
                              const std::string& condition, bool with_q850) {
  return qvn_format("copy (select %s%s from %s %s) to stdout delimiter as ',' csv header",
                    kCdrColumnList, with_q850 ? kCdrQ850ColumnList : "", day.table.c_str(),
                    call_filter(condition, trunk).c_str());
}

int32_t get_rerate_cdr(rerate_task& task, const rerate_trunk& trunk, const rerate_day& day,
                       rerated_calls& calls) {
  const int64_t start = std::time(nullptr);
  rerate_task_progress_update(
      task, qvn_format("Loading %s %s CDRs", trunk.alias.c_str(), day.date.c_str()),
      rerate_status::loading_cdrs);
  const std::string condition = rerate_time_condition(day);
  log_begin(task, trunk, day, condition);
  if (!load_calls(task, trunk, day, condition, calls)) {
    QVN_LOG(kLogWarning, "Rerate task %d load %s %s cdr failed\n", static_cast<int>(task.id),
            trunk.alias.c_str(), day.date.c_str());
    return -1;
  }
  // A load that fails does not count: its calls are not rated.
  const int64_t elapsed = std::time(nullptr) - start;
  QVN_LOG(kLogNotice, "Rerate task %d loading %s %s %s cdr done, elapsed %ld(s), cdr count %u\n",
          static_cast<int>(task.id), side_name(trunk.side), trunk.alias.c_str(), day.date.c_str(),
          elapsed, calls.count());
  task.figures.cdr_load_seconds += elapsed;
  task.figures.cdr_count += calls.count();
  return 0;
}
