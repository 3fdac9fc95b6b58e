#include "rate_upload/rate_reconcile.h"

bool rate_reconciler::reconcile(const import_record& line, const rp_hash_node& code_node,
                                statement_list& updates, statement_list& deletions) const {
  const int64_t begin = line.terms->effective.epoch;
  const int64_t end_before = job_has_end_date ? kJobsEndDate : begin - 1;
  const auto* rate = static_cast<const rate_node*>(code_node.items);
  for (uint64_t left = rate ? code_node.item_count : 0; left > 0; --left, rate = rate->next) {
    if (rate->effective_date > begin) {
      break;  // the list is sorted: only later rates follow, and they stay
    }
    bool queued = true;
    if (rate->effective_date < begin) {
      queued = updates.push({rate->rate_id, end_before});
    } else if (repeated_rate_action == kDeleteRepeatedRate) {
      queued = deletions.push({rate->rate_id, 0});
    } else if (repeated_rate_action == kEndRepeatedRate) {
      queued = updates.push({rate->rate_id, now - 1});
    }
    if (!queued) {
      return false;
    }
  }
  return true;
}
