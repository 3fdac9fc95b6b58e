/// What becomes of the stored rates when a deck's line arrives. Pure: existing rates and the line
/// in, statements out.
#pragma once

#include <cstdint>

#include "rate_upload/import_record.h"
#include "rate_upload/statement_list.h"
#include "rate_upload/stored_rates.h"

/// The values of `reduplicate_rate_action`; any other keeps both rates.
inline constexpr int32_t kDeleteRepeatedRate = 1;
inline constexpr int32_t kEndRepeatedRate = 2;

/// What the lines of one job are reconciled by.
struct rate_reconciler {
  int32_t repeated_rate_action;
  bool job_has_end_date;  ///< rates that are followed up end at the date of the job's row
  int64_t now;            ///< the second before which repeated rates are ended

  /// Queues what the line does to the stored rates of its code: a later rate stays; one of the same
  /// date is treated by the job's action; an earlier one ends. False when memory runs out. The
  /// statements point to the ids of the stored rates.
  [[nodiscard]] bool reconcile(const import_record& line, const stored_rates& rates,
                               statement_list& updates, statement_list& deletions) const;
};
