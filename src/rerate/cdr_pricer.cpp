#include "rerate/cdr_pricer.h"

#include "db/qvn_db.h"

void cdr_pricer::add(char* line, priced_calls& out) {
  fields_.fill("");
  pg_row_csv_parse(line, columns_);
  if (rater_.rate(columns_) == cdr_rater::outcome::not_matched) {
    for (const std::string_view text :
         {columns_[kSessionId], columns_[kTranslationAni], cdr_rater::billed_number(columns_)}) {
      (out.unmatched += text) += '\0';
    }
  }
  cdr_line_append(out.lines, columns_);
}

void cdr_pricer::finish(priced_calls& /*out*/) {}
