/// One rate import from its connection to its final row: what the row asks for, what has been
/// loaded, and what has been done so far. Made by the poller, then its worker thread's alone.
#pragma once

#include <memory>
#include <optional>
#include <utility>

#include "db/qvn_db_job.h"
#include "rate_upload/code_decks.h"
#include "rate_upload/deck_dates.h"
#include "rate_upload/import_record.h"
#include "rate_upload/rate_upload_row.h"
#include "rate_upload/seen_codes.h"
#include "rate_upload/statement_list.h"
#include "rate_upload/stored_rates.h"

/// Names the job on its connections and in the messages of the database layer.
inline constexpr const char* kRateUploadLabel = "Rate upload";

/// What an import works with: all that grows with the deck and the rate table.
struct rate_upload_data {
  stored_rates rates;  ///< of the rate table, not yet ended
  code_decks names;    ///< code names and countries

  std::unique_ptr<seen_codes> codes;      ///< owns the codes of `imports`
  std::optional<rate_date_reader> dates;  ///< owns their date texts
  import_list imports;                    ///< accepted lines, the last one first
  statement_list updates;                 ///< end dates to be set; the ids are of `rates`
  statement_list deletions;               ///< rates to be deleted
  bool statements_lost = false;           ///< one of these found no memory
};

struct rate_upload_task final : qvn_db_job {
  explicit rate_upload_task(rate_upload_row job_row) : row(std::move(job_row)) { id = row.id; }

  /// Logs, as of the caller's line, a text with label and id, and marks the import as failed.
  /// Returns false.
  [[gnu::format(printf, 2, 0)]] bool refuse(const char* log_line, const char* progress_text,
                                            int line = __builtin_LINE());

  /// Logs, as of the caller's line, that memory ran out.
  void log_memory_shortage(int line = __builtin_LINE()) const;

  const rate_upload_row row;
  rate_upload_outcome outcome;
  rate_upload_figures figures;
  std::unique_ptr<rate_upload_data> data = std::make_unique<rate_upload_data>();

 protected:
  void work() override;
  void report_memory_shortage() override;
  void write_final_row() override;
  void log_end() const override;
  void release_data() override { data.reset(); }
};

/// Writes progress and status into the row. A failure is logged, as of the caller's line, and
/// changes nothing. Throws std::bad_alloc when memory runs out.
void rate_upload_task_progress_update(rate_upload_task& task, const char* text,
                                      upload_status status, int line = __builtin_LINE());
