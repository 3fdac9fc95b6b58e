#include "rate_upload/import_files.h"

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

bool refuse_deck(rate_upload_task& task, const char* name, int line = __builtin_LINE()) {
  (void)qvn_log_print(kLogSource, line, kLogWarning, 0,
                      "%s rate upload task %u open %s file failed\n", task.label.c_str(), task.id,
                      name);
  task.outcome.fail(kDeckNotOpened);
  return false;
}

/// Opens the three files in the order in which their failures are reported; false, logged, at the
/// first.
bool open_files(rate_upload_task& task, import_files& files) {
  const std::string deck_path = task.row.upload_file_path + "/" + task.row.upload_format_file;
  files.deck = rate_deck_open(deck_path.c_str());
  if (!files.deck) {
    return refuse_deck(task, deck_path.c_str());
  }
  files.log = task.folder.create(kImportLog);
  if (!files.log) {
    return task.refuse("%s rate upload task %u open import log file failed\n",
                       "Create rate import log file failed");
  }
  files.reimport = task.folder.create(kReimportFile);
  return files.reimport || task.refuse("%s rate upload task %u open reimport rate file failed\n",
                                       kReimportNotCreated);
}

/// Closes a result file. A full disk is logged, as refused lines are missing then.
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

  bool accepted(const import_values& values, const rate_deck_line& /*line*/) override {
    if (!task_.data->imports.push(values)) {
      return false;
    }
    ++task_.figures.accepted;
    return true;
  }

  void refused(std::string_view /*message*/, const rate_deck_line& /*line*/) override {
    ++task_.figures.refused;
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
      return task.refuse("%s rate upload task %u import header invalid\n", kDeckHeaderInvalid);
    case rate_deck_end::unreadable:
      return refuse_deck(task, task.row.upload_format_file.c_str());
    case rate_deck_end::no_memory:
      task.log_memory_shortage();
      task.outcome.fail(kMemoryShortage);
      break;
  }
  return false;
}

bool validate(rate_upload_task& task, const import_files& files) {
  rate_upload_data& data = *task.data;
  data.dates.emplace(task.row.rate_date_format, std::time(nullptr));
  import_lines lines(task);
  const rate_deck_request request{files.deck.get(),
                                  files.log.get(),
                                  files.reimport.get(),
                                  *data.dates,
                                  *data.codes,
                                  task.row.code_deck_flag == 1 ? &data.names : nullptr,
                                  task.row.rate_table_code_deck_id};
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
  // Of a deck that was read in part too: what was refused until then is of use.
  close_result_file(task, std::move(files.log), kImportLog);
  close_result_file(task, std::move(files.reimport), kReimportFile);
  return whole;
}
