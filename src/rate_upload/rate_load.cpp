/// Loading the code deck and the stored rates of an import.

#include <cstdlib>
#include <ctime>

#include "base/qvn_log.h"
#include "base/qvn_text.h"
#include "rate_upload/rate_upload_task.h"

namespace {

constexpr const char* kLogSource = "qvn_rate_upload";

constexpr int32_t kLoaded = 0;
constexpr int32_t kNoMemory = -1;

/// What the row callbacks of a load share.
struct load_context {
  rate_upload_task& task;
  bool complete = true;  ///< false when any row was lost for lack of memory
};

int64_t number(const char* text) {
  return std::strtol(text, nullptr, 10);
}

/// Keeps a rate, but for those of a rate table whose id reads otherwise than the job's ("07"): no
/// line of the deck ends them.
int32_t create_rate(rate_upload_task& task, std::span<char*> fields) {
  const std::string_view rate_id = fields[0];
  const std::string_view rate_table_id = fields[1];
  const std::string_view code = fields[2];
  const int64_t effective_date = number(fields[3]);
  return rate_table_id != task.rate_table_id ||
                 task.rates.add(code, rate_id, effective_date, std::time(nullptr))
             ? kLoaded
             : kNoMemory;
}

/// Reports the first row that is lost; the load goes on to its end, but counts as failed.
int32_t checked(load_context& load, int32_t result, const char* what) {
  if (result != kLoaded && load.complete) {
    QVN_LOG(kLogError, "Alloc memory for %s of %s rate upload task %u failed\n", what,
            load.task.label.c_str(), load.task.id);
    load.complete = false;
  }
  return result;
}

int32_t create_code_deck_ext(std::span<char*> fields, void* context) {
  auto& load = *static_cast<load_context*>(context);
  return checked(load, load.task.code_deck.add(fields) ? kLoaded : kNoMemory, "code deck");
}

int32_t rate_upload_create_rate_ext(std::span<char*> fields, void* context) {
  auto& load = *static_cast<load_context*>(context);
  return checked(load, create_rate(load.task, fields), "rate");
}

bool load(rate_upload_task& task, const char* sql, std::size_t columns,
          pg_fields_context_fn on_row) {
  load_context context{task};
  const int32_t result = qvn_db_data_copy_load_p2(task.connection.get(), sql, columns, on_row,
                                                  &context, kRateUploadLabel);
  return result == 0 && context.complete;
}

bool load_code_deck(rate_upload_task& task) {
  if (task.code_deck_flag != 1) {
    return true;
  }
  if (load(task,
           "copy code (code_id,code, code_deck_id, country, name) to stdout delimiter as ',' csv "
           "header",
           kDeckColumns, create_code_deck_ext)) {
    return true;
  }
  task.fail("Load code deck failed");
  return false;
}

bool load_rates(rate_upload_task& task) {
  constexpr std::size_t kColumns = 6;
  const upload_phase_timer timer(task.download);
  const std::string sql = qvn_format(
      "copy (select rate_id, rate_table_id, code, extract(epoch from (effective_date)) as "
      "effective_date, extract(epoch from (end_date)) as end_date, rate from rate where "
      "rate_table_id = '%s' and (extract(epoch from (end_date)) > %ld or end_date is null)) to "
      "stdout delimiter as ',' csv header",
      task.rate_table_id.c_str(), std::time(nullptr));
  if (load(task, sql.c_str(), kColumns, rate_upload_create_rate_ext)) {
    return true;
  }
  task.fail("Load rate data failed");
  return false;
}

}  // namespace

bool rate_upload_load(rate_upload_task& task) {
  if (!rate_upload_show_begin(task) || !load_code_deck(task)) {
    return false;
  }
  QVN_LOG(kLogDebug, "%s rate upload task %u load rate data\n", task.label.c_str(), task.id);
  if (!load_rates(task)) {
    return false;
  }
  QVN_LOG(kLogNotice, "%s rate upload task %u loading rate done, elapsed %ld(s)\n",
          task.label.c_str(), task.id, task.download.elapsed());
  return true;
}
