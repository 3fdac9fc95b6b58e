#include "rate_upload/rate_reconcile.h"

#include "base/qvn_text.h"
#include "base/qvn_time.h"

rate_reconciler::rate_reconciler(int32_t repeated_rate_action, const std::string& end_date,
                                 int64_t now)
    : action_(repeated_rate_action),
      end_date_(end_date),
      end_of_repeated_(qvn_utc_timestamp(now - 1)) {}

void rate_reconciler::reconcile(const import_record& line, const rp_hash_node& code_node,
                                statement_list& updates, statement_list& deletions) {
  const auto* rate = static_cast<const rate_node*>(code_node.items);
  for (uint64_t left = rate ? code_node.item_count : 0; left > 0; --left, rate = rate->next) {
    if (rate->effective_date > line.effective_date) {
      return;  // the list is sorted: only later rates follow, and they stay
    }
    if (rate->effective_date < line.effective_date) {
      queue_end(*rate, end_before(line.effective_date), updates);
    } else if (action_ == kDeleteRepeatedRate) {
      statement_ = "delete from rate where rate_id = ";
      statement_ += qvn_or_empty(rate->rate_id);
      deletions.push(statement_);
    } else if (action_ == kEndRepeatedRate) {
      queue_end(*rate, end_of_repeated_, updates);
    }
  }
}

const std::string& rate_reconciler::end_before(int64_t effective_date) {
  if (!end_date_.empty()) {
    return end_date_;
  }
  if (remembered_end_.empty() || remembered_date_ != effective_date) {
    remembered_end_ = qvn_utc_timestamp(effective_date - 1);
    remembered_date_ = effective_date;
  }
  return remembered_end_;
}

void rate_reconciler::queue_end(const rate_node& rate, const std::string& end,
                                statement_list& updates) {
  statement_ = "update rate set end_date = '";
  statement_ += end;
  statement_ += "' where rate_id = ";
  statement_ += qvn_or_empty(rate.rate_id);
  updates.push(statement_);
}
