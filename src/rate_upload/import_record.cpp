#include "rate_upload/import_record.h"

#include <cstring>
#include <new>

#include "base/qvn_slab.h"

static_assert(sizeof(import_record) == 104, "the header states the size of a record");

namespace {

thread_local constinit qvn_slab import_slab;

}  // namespace

bool import_list::push(const import_values& values) {
  const std::size_t texts = qvn_stored_size(values.code) + qvn_stored_size(values.code_name) +
                            qvn_stored_size(values.country);
  void* const memory = import_slab.alloc(sizeof(import_record) + texts);
  if (!memory) {
    return false;
  }
  char* end = static_cast<char*>(memory) + sizeof(import_record);
  auto* const record = new (memory) import_record{};
  record->zone = values.zone;
  record->interval = values.interval == 0 ? kDefaultInterval : values.interval;
  record->seconds = values.seconds == 0 ? kDefaultSeconds : values.seconds;
  record->rate_type = values.rate_type;
  record->min_time = values.min_time;
  record->grace_time = values.grace_time;
  record->code = qvn_store_text(end, values.code);
  record->code_name = qvn_store_text(end, values.code_name);
  record->country = qvn_store_text(end, values.country);
  record->effective_text = values.effective.text;
  record->end_text = values.end.text;
  record->effective_date = values.effective.epoch;
  record->end_date = values.end.epoch;
  record->rate = values.rate;
  record->setup_fee = values.setup_fee;
  record->intra_rate = values.intra_rate;
  record->inter_rate = values.inter_rate;
  record->local_rate = values.local_rate;
  record->next = first_;
  first_ = record;
  return true;
}

void import_list::pop() {
  import_record* const record = first_;
  first_ = record->next;
  qvn_slab::release(record);
}

void import_list::clear() {
  while (first_) {
    pop();
  }
}
