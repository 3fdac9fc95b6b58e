/// The validation of a job's rate deck: its files, its counts and its failures.

#include <cstdio>
#include <cstring>
#include <ctime>

#include "base/qvn_file.h"
#include "base/qvn_log.h"
#include "rate_upload/deck_validation.h"
#include "rate_upload/rate_upload_task.h"

namespace {

constexpr const char* kLogSource = "qvn_rate_upload";

constexpr const char* kImportLog = "rate_import.log";
constexpr const char* kReimportFile = "rate_reimport.csv";

/// The files of one import.
struct import_files {
  qvn_file deck;
  qvn_job_file log;
  qvn_job_file reimport;
};

/// Opens the three files in the order in which their failures are reported; false, logged, at the
/// first.
bool open_files(rate_upload_task& task, import_files& files) {
  const std::string deck_path = task.upload_file_path + "/" + task.upload_format_file;
  files.deck = rate_deck_open(deck_path.c_str());
  if (!files.deck) {
    QVN_LOG(kLogWarning, "%s rate upload task %u open %s file failed\n", task.label.c_str(),
            task.id, deck_path.c_str());
    task.fail(kDeckNotOpened);
    return false;
  }
  files.log = task.folder.create(kImportLog);
  if (!files.log) {
    QVN_LOG(kLogWarning, "%s rate upload task %u open import log file failed\n", task.label.c_str(),
            task.id);
    task.fail("Create rate import log file failed");
    return false;
  }
  files.reimport = task.folder.create(kReimportFile);
  if (!files.reimport) {
    QVN_LOG(kLogWarning, "%s rate upload task %u open reimport rate file failed\n",
            task.label.c_str(), task.id);
    task.fail(kReimportNotCreated);
    return false;
  }
  return true;
}

/// Closes a result file; a full disk is told to the operator, as refused lines are missing then.
void close_result_file(const rate_upload_task& task, qvn_job_file file, const char* name) {
  if (const int error = qvn_job_file_finish(std::move(file))) {
    QVN_LOG(kLogWarning, "%s rate upload task %u writing %s failed, %s\n", task.label.c_str(),
            task.id, name, std::strerror(error));
  }
}

/// Keeps and counts the lines of a job.
class import_lines final : public rate_deck_listener {
 public:
  explicit import_lines(rate_upload_task& task) : task_(task) {}

  bool accepted(const import_values& values) override {
    if (!task_.imports.push(values)) {
      return false;
    }
    ++task_.accepted_count;
    return true;
  }

  void refused(std::string_view /*message*/) override {
    ++task_.error_count;
    ++task_.reimport_count;
  }

 private:
  rate_upload_task& task_;
};

/// Logs why the deck was not read to its end, and marks the import as failed.
bool report(rate_upload_task& task, rate_deck_end end) {
  switch (end) {
    case rate_deck_end::whole:
      return true;
    case rate_deck_end::no_header:
      QVN_LOG(kLogWarning, "%s rate upload task %u import header invalid\n", task.label.c_str(),
              task.id);
      task.fail(kDeckHeaderInvalid);
      break;
    case rate_deck_end::unreadable:
      QVN_LOG(kLogWarning, "%s rate upload task %u open %s file failed\n", task.label.c_str(),
              task.id, task.upload_format_file.c_str());
      task.fail(kDeckNotOpened);
      break;
    case rate_deck_end::no_memory:
      QVN_LOG(kLogError, kImportAllocFailed, task.label.c_str(), task.id);
      task.fail(kMemoryShortage);
      break;
  }
  return false;
}

bool validate(rate_upload_task& task, const import_files& files) {
  task.dates.emplace(task.deck_date_format, std::time(nullptr));
  import_lines lines(task);
  const rate_deck_request request{files.deck.get(),
                                  files.log.get(),
                                  files.reimport.get(),
                                  *task.dates,
                                  *task.codes,
                                  task.code_deck_flag == 1 ? &task.code_deck : nullptr,
                                  task.rate_table_code_deck_id};
  return report(task, rate_deck_validate(request, lines));
}

}  // namespace

bool rate_upload_process_file(rate_upload_task& task) {
  rate_upload_task_progress_update(task, "Import rate processing", upload_status::validating);
  import_files files;
  if (!open_files(task, files)) {
    return false;
  }
  const bool whole = validate(task, files);
  close_result_file(task, std::move(files.log), kImportLog);
  close_result_file(task, std::move(files.reimport), kReimportFile);
  return whole;
}
