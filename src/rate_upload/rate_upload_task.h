/// One rate import: the row of `rate_upload_task`, what it has loaded and what it has done so far.
/// Made by the poller, then its worker thread's alone.
#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>

#include "db/qvn_db.h"
#include "db/qvn_job_folder.h"
#include "db/qvn_job_queue.h"
#include "rate_upload/code_decks.h"
#include "rate_upload/deck_dates.h"
#include "rate_upload/import_record.h"
#include "rate_upload/seen_codes.h"
#include "rate_upload/statement_list.h"
#include "rate_upload/stored_rates.h"

/// Names the job on its connections and in the messages of the database layer.
inline constexpr const char* kRateUploadLabel = "Rate upload";

/// Asks for the next waiting rows.
inline constexpr const char* kRateUploadJobQuery =
    "SELECT id,upload_file_path,upload_format_file,rate_table_id,rate_table_code_deck_id,"
    "rate_date_format,rate_end_date,reduplicate_rate_action,code_deck_flag,use_ocn_lata_code from "
    "rate_upload_task where status=0 order by id asc limit 2;";

/// Values of the row's column `status`.
enum class upload_status : int32_t {
  waiting = 0,
  loading = 1,
  validating = 2,
  writing = 3,
  finished = 4,
  failed = 5,
};

/// The texts of a shortage of memory: for the portal, and for the log with label and id.
inline constexpr const char* kMemoryShortage = "System memory shortage";
inline constexpr const char* kImportAllocFailed =
    "%s rate upload task %u alloc memory for import rate failed\n";

/// Begin and end of a phase, seconds since the epoch.
struct upload_phase {
  int64_t start = 0;
  int64_t end = 0;
  [[nodiscard]] int64_t elapsed() const { return end - start; }
};

/// Measures a phase from here to the end of the scope, on every way out.
class upload_phase_timer {
 public:
  explicit upload_phase_timer(upload_phase& phase) : phase_(phase) {
    phase_.start = std::time(nullptr);
  }
  ~upload_phase_timer() { phase_.end = std::time(nullptr); }
  upload_phase_timer(const upload_phase_timer&) = delete;
  upload_phase_timer& operator=(const upload_phase_timer&) = delete;

 private:
  upload_phase& phase_;
};

struct rate_upload_task final : qvn_job {
  ~rate_upload_task() override { release_data(); }

  void run() noexcept override;

  /// Frees rates, lists and codes: all that grows with the deck and the rate table.
  void release_data();

  /// Marks the import as failed, with the progress text that the portal will show.
  void fail(const char* progress_text);

  pg_connection connection;  ///< null until the worker has connected
  bool failed = false;
  upload_status status = upload_status::waiting;  ///< as last written to the row
  char progress[200] = {};                        ///< the row's final progress

  std::string upload_file_path;    ///< directory of the deck, without a trailing "/"
  std::string upload_format_file;  ///< name of the deck's file
  qvn_job_folder folder;           ///< of the result files
  std::string rate_table_id;
  std::string rate_table_code_deck_id;  ///< empty: any deck
  std::string
      rate_end_date;  ///< end of the rates that are followed up; empty: their successor's start
  date_format deck_date_format = date_format::unsupported;
  std::string rate_date_format;         ///< the row's name of it
  int32_t reduplicate_rate_action = 0;  ///< rates of the same date: 1 delete, 2 end, else keep
  uint8_t code_deck_flag = 0;           ///< 1: names and countries come from the code deck
  uint8_t use_ocn_lata_code = 0;        ///< 1 is refused

  stored_rates rates;    ///< of the rate table, not yet ended
  code_decks code_deck;  ///< names and countries by code

  std::unique_ptr<seen_codes> codes;      ///< owns the codes of `imports`
  std::optional<rate_date_reader> dates;  ///< owns their date texts
  import_list imports;                    ///< accepted lines, the last one first
  statement_list updates;                 ///< end dates to be set; the ids are of `rates`
  statement_list deletions;               ///< rates to be deleted

  uint32_t accepted_count = 0;  ///< lines of the deck
  uint32_t insert_count = 0;    ///< lines sent to the database
  uint32_t delete_count = 0;    ///< statements sent
  uint32_t update_count = 0;    ///< statements sent
  uint32_t error_count = 0;     ///< refused lines
  uint32_t reimport_count = 0;  ///< lines in the reimport file

  int64_t start_time = 0;  ///< when the row was read
  int64_t end_time = 0;
  upload_phase download;
  upload_phase process;
  upload_phase deletion;
  upload_phase update;
  upload_phase copy;
};

/// Writes progress and status into the row and keeps the status in the task. A failure is logged
/// and changes nothing. Throws std::bad_alloc when memory runs out.
void rate_upload_task_progress_update(rate_upload_task& task, const char* text,
                                      upload_status status);

/// Writes the first progress into the row. A job whose row cannot be written would be done again at
/// each poll: false, with the task failed and its connection closed, so that the row stays as it
/// is, when the server refuses it. Throws std::bad_alloc when memory runs out.
[[nodiscard]] bool rate_upload_show_begin(rate_upload_task& task);

/// Loads the code deck and the rate table's rates that have not ended. False, with the task failed,
/// when they cannot be loaded whole.
[[nodiscard]] bool rate_upload_load(rate_upload_task& task);

/// Validates the deck: accepted lines become import records, refused ones go to the result files.
/// False, with the task failed, when the deck cannot be used or memory runs out.
[[nodiscard]] bool rate_upload_process_file(rate_upload_task& task);

/// Writes the accepted lines into table `rate`, then carries out the queued end dates and
/// deletions: new rates are in before old ones are ended, so that no failure leaves a code without
/// a price.
void rate_upload_write(rate_upload_task& task);
