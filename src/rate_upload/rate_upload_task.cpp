/// One import in its worker thread, from the connection to the final row.

#include "rate_upload/rate_upload_task.h"

#include <cstdio>
#include <ctime>
#include <memory>
#include <new>

#include "base/qvn_log.h"
#include "base/qvn_text.h"
#include "rate_upload/deck_validation.h"
#include "rate_upload/qvn_rate_upload.h"
#include "rate_upload/rate_reconcile.h"

namespace {

constexpr const char* kLogSource = "qvn_rate_upload";

/// Logs what failed, with the task's label and id, and marks the import as failed.
[[gnu::format(printf, 2, 0)]] bool refuse(rate_upload_task& task, const char* log_line,
                                          const char* progress) {
  (void)qvn_log_print(kLogSource, __LINE__, kLogWarning, 0, log_line, task.label.c_str(), task.id);
  task.fail(progress);
  return false;
}

/// Keeps the status in the task.
std::string progress_statement(rate_upload_task& task, const char* text, upload_status status) {
  task.status = status;
  return qvn_format("UPDATE rate_upload_task SET progress = '%s',status=%d where id = %d", text,
                    static_cast<int>(status), static_cast<int>(task.id));
}

bool connect(rate_upload_task& task) {
  task.connection = qvn_pg_conn(task.conninfo.c_str(), kRateUploadLabel);
  return task.connection ||
         refuse(task, "%s rate upload task %u DB connect failed, wait for restart\n", "");
}

bool make_result_directory(rate_upload_task& task) {
  task.folder = qvn_job_folder::make(qvn_rate_upload_result_directory(), task);
  return !task.folder.path().empty() ||
         refuse(task, "%s rate upload task %u mkdir result path failed, wait for restart\n", "");
}

bool make_code_table(rate_upload_task& task) {
  task.codes.reset(new (std::nothrow) seen_codes);
  if (!task.codes) {
    QVN_LOG(kLogError, "%s rate upload task %u Alloc memory for import rate hash table failed\n",
            task.label.c_str(), task.id);
    task.fail(kMemoryShortage);
    return false;
  }
  return true;
}

bool choose_date_format(rate_upload_task& task) {
  task.deck_date_format = rate_date_format_index(task.rate_date_format.c_str());
  return task.deck_date_format != date_format::unsupported ||
         refuse(task, "%s rate upload task %u rate date format unsupported\n",
                kDateFormatUnsupported);
}

bool check_settings(rate_upload_task& task) {
  if (task.upload_file_path.empty() || task.upload_format_file.empty()) {
    return refuse(task, "%s rate upload task %u missing souce rate file\n",
                  "missing souce rate file");
  }
  if (task.rate_table_id.empty()) {
    return refuse(task, "%s rate upload task %u not assign rate table id\n",
                  "Not assign rate table id");
  }
  if (task.use_ocn_lata_code == 1) {
    return refuse(task, "%s rate upload task %u unsupported OCN LATA code import\n",
                  "Unsupported OCN LATA code import");
  }
  return true;
}

/// Queues what each accepted line does to the stored rates of its code. Without memory for a
/// statement the next line is tried: what could not be ended is ended by the next upload.
void reconcile(rate_upload_task& task) {
  if (task.rates.empty()) {
    return;
  }
  const rate_reconciler reconciler{task.reduplicate_rate_action, !task.rate_end_date.empty(),
                                   std::time(nullptr)};
  task.imports.look_through([&](const import_record& line) {
    if (!reconciler.reconcile(line, task.rates, task.updates, task.deletions)) {
      QVN_LOG(kLogError, kImportAllocFailed, task.label.c_str(), task.id);
      task.fail(kMemoryShortage);
    }
    return true;
  });
}

/// Validates the deck and queues what it does to the stored rates; false, with the task failed,
/// when the deck cannot be used.
bool process_deck(rate_upload_task& task) {
  const upload_phase_timer timer(task.process);
  if (!rate_upload_process_file(task)) {
    return false;
  }
  reconcile(task);
  return true;
}

void rate_upload_process_rate(rate_upload_task& task) {
  if (!process_deck(task)) {
    return;
  }
  task.failed = false;  // a statement lost in the reconciliation does not keep the new rates out
  rate_upload_write(task);
}

/// The steps of an import, each with its own way of failing.
void import(rate_upload_task& task) {
  if (connect(task) && make_result_directory(task) && make_code_table(task) &&
      choose_date_format(task) && check_settings(task) && rate_upload_load(task)) {
    rate_upload_process_rate(task);
  }
}

/// Writes outcome, figures and times into the row and closes the connection. Without a connection
/// the row stays as it is and is offered again by the next poll.
void write_final_row(rate_upload_task& task) {
  task.status = task.failed ? upload_status::failed : upload_status::finished;
  task.end_time = std::time(nullptr);
  if (!task.connection) {
    return;
  }
  if (!task.failed) {
    (void)std::snprintf(task.progress, sizeof task.progress,
                        "Insert: %u, Delete: %u, Update: %u, Error: %u", task.insert_count,
                        task.delete_count, task.update_count, task.error_count);
  }
  const std::string detail = qvn_format(
      "Download: %ld, Process: %ld, Delete: %ld, Update: %ld, Copy: %ld", task.download.elapsed(),
      task.process.elapsed(), task.deletion.elapsed(), task.update.elapsed(), task.copy.elapsed());
  const std::string sql = qvn_format(
      "update rate_upload_task set progress='%s',status=%d,start_time=%ld,end_time=%ld,"
      "expense_detail='%s',result_file_path='%s' where id=%d",
      task.progress, static_cast<int>(task.status), task.start_time, task.end_time, detail.c_str(),
      task.folder.path().c_str(), static_cast<int>(task.id));
  (void)qvn_db_update(task.connection.get(), sql.c_str(), kRateUploadLabel);  // logged there
  task.connection.reset();
}

void log_outcome(const rate_upload_task& task) {
  const char* const label = task.label.c_str();
  const int id = static_cast<int>(task.id);
  if (task.failed) {
    QVN_LOG(kLogWarning, "R%s rate upload %d execution failed, %s\n", label, id, task.progress);
    return;
  }
  QVN_LOG(kLogNotice, "%s rate upload task %d have been completed, elapsed %ld(s)\n", label, id,
          task.end_time - task.start_time);
  QVN_LOG(kLogNotice,
          "%s rate upload task %d have been completed, Insert: %u(%u), Delete: %u, Update: %u, "
          "Error: %u, Reimport: %u\n",
          label, id, task.insert_count, task.accepted_count, task.delete_count, task.update_count,
          task.error_count, task.reimport_count);
}

void report_memory_shortage(rate_upload_task& task) {
  QVN_LOG(kLogError, kImportAllocFailed, task.label.c_str(), task.id);
  task.fail(kMemoryShortage);
}

}  // namespace

void rate_upload_task::run() noexcept {
  QVN_LOG(kLogNotice, "Start %s rate upload task %u process\n", label.c_str(), id);
  try {
    import(*this);
  } catch (const std::bad_alloc&) {
    report_memory_shortage(*this);
  }
  try {
    write_final_row(*this);
  } catch (const std::bad_alloc&) {
    report_memory_shortage(*this);
  }
  folder.open_to_all();
  log_outcome(*this);
  release_data();
}

void rate_upload_task::release_data() {
  rates.clear();
  code_deck.clear();
  codes.reset();
  imports.clear();
  dates.reset();
  updates.clear();
  deletions.clear();
}

void rate_upload_task::fail(const char* progress_text) {
  failed = true;
  progress[qvn_cut(progress_text, sizeof progress - 1).copy(progress, sizeof progress)] = '\0';
}

void rate_upload_task_progress_update(rate_upload_task& task, const char* text,
                                      upload_status status) {
  const std::string sql = progress_statement(task, text, status);
  (void)qvn_db_progress(task.connection.get(), sql.c_str(), {kLogSource, __LINE__});
}

bool rate_upload_show_begin(rate_upload_task& task) {
  std::string refusal;
  const std::string sql = progress_statement(task, "Loading data", upload_status::loading);
  qvn_db_first_progress(task.connection.get(), sql.c_str(), {kLogSource, __LINE__}, refusal);
  if (refusal.empty()) {
    return true;
  }
  task.connection.reset();
  task.fail(qvn_format("job row can't be written, %s", refusal.c_str()).c_str());
  return false;
}
