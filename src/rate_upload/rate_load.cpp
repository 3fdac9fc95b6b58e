#include "rate_upload/rate_load.h"

#include <ctime>

#include "base/qvn_log.h"
#include "base/qvn_stopwatch.h"
#include "base/qvn_text.h"
#include "db/qvn_pg_rows.h"
#include "rate/rate_query.h"
#include "rate_upload/rate_upload_task.h"

namespace {

constexpr const char* kLogSource = "qvn_rate_upload";

/// Keeps a rate, but for those of a rate table whose id reads otherwise than the job's ("07"): no
/// line of the deck ends them.
bool rate_upload_create_rate_ext(rate_upload_task& task, std::span<char*> fields) {
  const std::string_view rate_id = fields[0];
  const std::string_view rate_table_id = fields[1];
  const std::string_view code = fields[2];
  const int64_t effective_date = qvn_number<int64_t>(fields[3]);
  // Judged by the clock at each row: a load takes seconds, and a rate may begin meanwhile.
  return rate_table_id != task.row.rate_table_id ||
         task.data->rates.add(code, rate_id, effective_date, std::time(nullptr));
}

/// Loads the rows, each of which `keep` stores. False, with the task failed as `failure`, when any
/// of them is missing or, logged once, found no memory.
bool load(rate_upload_task& task, const char* sql, std::size_t columns, const char* what,
          const char* failure, qvn_function_ref<bool(std::span<char*>)> keep) {
  bool complete = true;
  const pg_copy_end end = qvn_pg_copy_fields(
      task.connection.get(), sql, columns, kRateUploadLabel, [&](std::span<char*> fields) {
        if (!keep(fields) && complete) {
          QVN_LOG(kLogError, "Alloc memory for %s of %s rate upload task %u failed\n", what,
                  task.label.c_str(), task.id);
          complete = false;
        }
      });
  if (end == pg_copy_end::whole && complete) {
    return true;
  }
  task.outcome.fail(failure);
  return false;
}

bool load_code_decks(rate_upload_task& task) {
  return task.row.code_deck_flag != 1 ||
         load(task, kCodeDeckCopy, kDeckColumns, "code deck", "Load code deck failed",
              [&](std::span<char*> fields) { return task.data->names.add(fields); });
}

bool load_rates(rate_upload_task& task) {
  constexpr std::size_t kColumns = 6;  // the last two are not looked at
  const qvn_stopwatch stopwatch(task.figures.download_seconds);
  const std::string sql = stored_rates_copy(task.row.rate_table_id, std::time(nullptr));
  return load(task, sql.c_str(), kColumns, "rate", "Load rate data failed",
              [&](std::span<char*> fields) { return rate_upload_create_rate_ext(task, fields); });
}

}  // namespace

std::string stored_rates_copy(const std::string& rate_table_id, int64_t time) {
  return rates_not_ended_copy(
      "rate_id, rate_table_id, code, extract(epoch from (effective_date)) as effective_date, "
      "extract(epoch from (end_date)) as end_date, rate",
      rate_table_id, time);
}

bool rate_upload_load(rate_upload_task& task) {
  if (!load_code_decks(task)) {
    return false;
  }
  QVN_LOG(kLogDebug, "%s rate upload task %u load rate data\n", task.label.c_str(), task.id);
  if (!load_rates(task)) {
    return false;
  }
  QVN_LOG(kLogNotice, "%s rate upload task %u loading rate done, elapsed %ld(s)\n",
          task.label.c_str(), task.id, task.figures.download_seconds);
  return true;
}
