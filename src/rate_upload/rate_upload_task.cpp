#include "rate_upload/rate_upload_task.h"

#include <ctime>
#include <new>

#include "base/qvn_log.h"
#include "base/qvn_stopwatch.h"
#include "rate_upload/deck_validation.h"
#include "rate_upload/import_files.h"
#include "rate_upload/qvn_rate_upload.h"
#include "rate_upload/rate_load.h"
#include "rate_upload/rate_reconcile.h"
#include "rate_upload/rate_write.h"

namespace {

constexpr const char* kLogSource = "qvn_rate_upload";

bool open_connection(rate_upload_task& task) {
  task.connection = qvn_pg_conn(task.conninfo.c_str(), kRateUploadLabel);
  return task.connection ||
         task.refuse("%s rate upload task %u DB connect failed, wait for restart\n", "");
}

bool make_result_directory(rate_upload_task& task) {
  task.folder = qvn_job_folder::make(qvn_rate_upload_result_directory(), task);
  return !task.folder.path().empty() ||
         task.refuse("%s rate upload task %u mkdir result path failed, wait for restart\n", "");
}

/// Before all that grows: without memory for so little the import ends before it loads anything.
bool make_code_table(rate_upload_task& task) {
  task.data->codes.reset(new (std::nothrow) seen_codes);
  if (!task.data->codes) {
    QVN_LOG(kLogError, "%s rate upload task %u Alloc memory for import rate hash table failed\n",
            task.label.c_str(), task.id);
    task.outcome.fail(kMemoryShortage);
    return false;
  }
  return true;
}

/// The first fault of the row is the one that the portal sees. Portals know these texts, "souce"
/// included.
bool check_row(rate_upload_task& task) {
  if (task.row.rate_date_format == date_format::unsupported) {
    return task.refuse("%s rate upload task %u rate date format unsupported\n",
                       kDateFormatUnsupported);
  }
  if (task.row.upload_file_path.empty() || task.row.upload_format_file.empty()) {
    return task.refuse("%s rate upload task %u missing souce rate file\n",
                       "missing souce rate file");
  }
  if (task.row.rate_table_id.empty()) {
    return task.refuse("%s rate upload task %u not assign rate table id\n",
                       "Not assign rate table id");
  }
  if (task.row.use_ocn_lata_code == 1) {
    return task.refuse("%s rate upload task %u unsupported OCN LATA code import\n",
                       "Unsupported OCN LATA code import");
  }
  return true;
}

/// After the checks of the row: one that fails them goes from waiting to failed at once.
bool show_begin(rate_upload_task& task) {
  const std::string refusal = task.write_first_progress(
      rate_upload_row_progress_update(task.id, "Loading data", upload_status::loading),
      {kLogSource, __LINE__});
  if (!refusal.empty()) {
    task.outcome.fail(refusal.c_str());
  }
  return refusal.empty();
}

/// Queues what each accepted line does to the stored rates of its code. Without memory for a
/// statement the next line is tried, and the new rates are written all the same: what could not be
/// ended is ended by the next upload.
void reconcile(rate_upload_task& task) {
  rate_upload_data& data = *task.data;
  if (data.rates.empty()) {
    return;
  }
  const rate_reconciler reconciler{task.row.reduplicate_rate_action,
                                   !task.row.rate_end_date.empty(), std::time(nullptr)};
  data.imports.look_through([&](const import_record& line) {
    if (!reconciler.reconcile(line, data.rates, data.updates, data.deletions)) {
      task.log_memory_shortage();
      data.statements_lost = true;
    }
    return true;
  });
}

/// Validates the deck, queues what it does to the stored rates and writes; writes nothing, with the
/// task failed, when the deck cannot be used.
void rate_upload_process_rate(rate_upload_task& task) {
  {
    const qvn_stopwatch stopwatch(task.figures.process_seconds);
    if (!rate_upload_process_file(task)) {
      return;
    }
    reconcile(task);
  }
  rate_upload_write(task);
}

/// The body of the worker thread: the steps of an import, each with its own way of failing.
void rate_upload_task_threand_run(rate_upload_task& task) {
  if (open_connection(task) && make_result_directory(task) && make_code_table(task) &&
      check_row(task) && show_begin(task) && rate_upload_load(task)) {
    rate_upload_process_rate(task);
  }
}

}  // namespace

void rate_upload_task::work() {
  QVN_LOG(kLogNotice, "Start %s rate upload task %u process\n", label.c_str(), id);
  rate_upload_task_threand_run(*this);
}

void rate_upload_task::report_memory_shortage() {
  log_memory_shortage();
  // Also in place of another failure: the final row, which would have shown that, is not written.
  outcome = {};
  outcome.fail(kMemoryShortage);
}

void rate_upload_task::write_final_row() {
  const std::string sql =
      rate_upload_row_final_update(id, outcome, figures, start_time, end_time, folder.path());
  (void)qvn_db_update(connection.get(), sql.c_str(), kRateUploadLabel);  // logged there
}

void rate_upload_task::log_end() const {
  const int shown_id = static_cast<int>(id);
  if (outcome.failed()) {
    // The "R" is part of the line.
    QVN_LOG(kLogWarning, "R%s rate upload %d execution failed, %s\n", label.c_str(), shown_id,
            outcome.text());
    return;
  }
  QVN_LOG(kLogNotice, "%s rate upload task %d have been completed, elapsed %ld(s)\n", label.c_str(),
          shown_id, end_time - start_time);
  // Each refused line is in the reimport file: one count is both.
  QVN_LOG(kLogNotice,
          "%s rate upload task %d have been completed, Insert: %u(%u), Delete: %u, Update: %u, "
          "Error: %u, Reimport: %u\n",
          label.c_str(), shown_id, figures.inserted, figures.accepted, figures.deleted,
          figures.updated, figures.refused, figures.refused);
}

bool rate_upload_task::refuse(const char* log_line, const char* progress_text, int line) {
  (void)qvn_log_print(kLogSource, line, kLogWarning, 0, log_line, label.c_str(), id);
  outcome.fail(progress_text);
  return false;
}

void rate_upload_task::log_memory_shortage(int line) const {
  (void)qvn_log_print(kLogSource, line, kLogError, 0,
                      "%s rate upload task %u alloc memory for import rate failed\n", label.c_str(),
                      id);
}

void rate_upload_task_progress_update(rate_upload_task& task, const char* text,
                                      upload_status status, int line) {
  const std::string sql = rate_upload_row_progress_update(task.id, text, status);
  (void)qvn_db_progress(task.connection.get(), sql.c_str(), {kLogSource, line});
}
