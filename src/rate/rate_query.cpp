#include "rate/rate_query.h"

#include "base/qvn_text.h"

std::string rates_not_ended_copy(const char* columns, const std::string& rate_table_id,
                                 int64_t time) {
  return qvn_format(
      "copy (select %s from rate where rate_table_id = '%s' and (extract(epoch from (end_date)) > "
      "%ld or end_date is null)) to stdout delimiter as ',' csv header",
      columns, rate_table_id.c_str(), time);
}
