/// A row of the job table `rate_upload_task`: what it asks for, what it shows, and all SQL by which
/// it is read and written.
#pragma once

#include <cstdint>
#include <string>

#include "db/qvn_pg_rows.h"
#include "rate_upload/deck_dates.h"

/// Asks for the next waiting rows, and the number of its columns.
inline constexpr const char* kRateUploadJobQuery =
    "SELECT id,upload_file_path,upload_format_file,rate_table_id,rate_table_code_deck_id,"
    "rate_date_format,rate_end_date,reduplicate_rate_action,code_deck_flag,use_ocn_lata_code from "
    "rate_upload_task where status=0 order by id asc limit 2;";
inline constexpr int kRateUploadJobColumns = 10;

/// Values of the row's column `status`.
enum class upload_status : int32_t {
  waiting = 0,
  loading = 1,
  validating = 2,
  writing = 3,
  finished = 4,
  failed = 5,
};

/// What the portal asks for.
struct rate_upload_row {
  uint32_t id = 0;
  std::string upload_file_path;    ///< directory of the deck, without a trailing "/"
  std::string upload_format_file;  ///< name of the deck's file
  std::string rate_table_id;
  std::string rate_table_code_deck_id;  ///< empty: any deck
  date_format rate_date_format = date_format::unsupported;
  std::string rate_end_date;  ///< end of followed-up rates; empty: their successor's start
  int32_t reduplicate_rate_action = 0;  ///< rates of the same date: 1 delete, 2 end, else keep
  uint8_t code_deck_flag = 0;           ///< 1: names and countries come from the code deck
  uint8_t use_ocn_lata_code = 0;        ///< 1 is refused
};

/// Whether and why an import has failed.
class rate_upload_outcome {
 public:
  /// The first call decides: what fails after it is a consequence. The text is what the portal will
  /// show; at most 199 bytes of it are kept.
  void fail(const char* progress_text);

  [[nodiscard]] bool failed() const { return failed_; }

  /// Empty until it failed.
  [[nodiscard]] const char* text() const { return text_; }

 private:
  bool failed_ = false;
  char text_[200] = {};
};

/// What the portal sees of an import in numbers.
struct rate_upload_figures {
  uint32_t accepted = 0;  ///< lines of the deck, as the next
  uint32_t refused = 0;
  uint32_t inserted = 0;  ///< lines sent to the database
  uint32_t deleted = 0;   ///< statements sent, as the next
  uint32_t updated = 0;
  int64_t download_seconds = 0;
  int64_t process_seconds = 0;
  int64_t deletion_seconds = 0;
  int64_t update_seconds = 0;
  int64_t copy_seconds = 0;
};

/// Reads a row of the job query. Throws std::bad_alloc when memory runs out, as all that follow.
[[nodiscard]] rate_upload_row rate_upload_row_read(const pg_row& row);

/// The update that shows how far an import is.
[[nodiscard]] std::string rate_upload_row_progress_update(uint32_t id, const char* text,
                                                          upload_status status);

/// The update that shows how an import ended; times are seconds since the epoch.
[[nodiscard]] std::string rate_upload_row_final_update(uint32_t id,
                                                       const rate_upload_outcome& outcome,
                                                       const rate_upload_figures& figures,
                                                       int64_t start_time, int64_t end_time,
                                                       const std::string& result_file_path);
