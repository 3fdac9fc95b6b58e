/// What becomes of the stored rates when a deck's line arrives. Pure: existing rates and the line
/// in, statements out.
#pragma once

#include <cstdint>
#include <string>

#include "rate/qvn_rate_table.h"
#include "rate_upload/import_record.h"
#include "rate_upload/statement_list.h"

/// The values of `reduplicate_rate_action`; any other keeps both rates.
inline constexpr int32_t kDeleteRepeatedRate = 1;
inline constexpr int32_t kEndRepeatedRate = 2;

/// Reconciles the lines of one job. One object a job; its memory makes equal dates cheap.
class rate_reconciler {
 public:
  /// `end_date` is the end of followed-up rates as the job's row has it, or empty. `now` is the
  /// second before which repeated rates are ended.
  rate_reconciler(int32_t repeated_rate_action, const std::string& end_date, int64_t now);

  /// Queues what the line does to the stored rates of its code, one list sorted by effective date:
  /// a later rate stays; one of the same date is treated by the job's action; an earlier one ends.
  /// Throws std::bad_alloc when memory runs out.
  void reconcile(const import_record& line, const rp_hash_node& code_node, statement_list& updates,
                 statement_list& deletions);

 private:
  /// The end of a rate that a line of that date follows up.
  const std::string& end_before(int64_t effective_date);
  void queue_end(const rate_node& rate, const std::string& end, statement_list& updates);

  int32_t action_;
  std::string end_date_;
  std::string end_of_repeated_;
  int64_t remembered_date_ = -1;
  std::string remembered_end_;  ///< one second before `remembered_date_`
  std::string statement_;       ///< scratch
};
