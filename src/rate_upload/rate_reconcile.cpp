#include "rate_upload/rate_reconcile.h"

bool rate_reconciler::reconcile(const import_record& line, const stored_rates& rates,
                                statement_list& updates, statement_list& deletions) const {
  const int64_t begin = line.terms->effective.epoch;
  const int64_t end_before = job_has_end_date ? kJobsEndDate : begin - 1;
  bool queued = true;
  rates.look_through(line.code, [&](const stored_rate& rate) {
    if (rate.effective_date > begin) {
      return false;  // only later rates follow, and they stay
    }
    if (rate.effective_date < begin) {
      queued = updates.push({rate.rate_id, end_before});
    } else if (repeated_rate_action == kDeleteRepeatedRate) {
      queued = deletions.push({rate.rate_id, 0});
    } else if (repeated_rate_action == kEndRepeatedRate) {
      queued = updates.push({rate.rate_id, now - 1});
    }
    return queued;
  });
  return queued;
}
