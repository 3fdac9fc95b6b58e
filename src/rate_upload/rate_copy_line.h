/// Lines of the COPY into table `rate`. Pure.
#pragma once

#include <string>

#include "rate_upload/import_record.h"

/// The COPY that takes the lines.
inline constexpr const char* kRateCopy =
    "COPY rate(rate_table_id,code,code_name,country,rate,intra_rate,inter_rate,local_rate,"
    "setup_fee,effective_date,end_date,grace_time,min_time,rate_type,seconds,interval,"
    "zone) FROM STDIN USING DELIMITERS ',' NULL as 'NULL'";

/// Writes the lines of one job.
class rate_copy_lines {
 public:
  /// Throws std::bad_alloc when memory runs out, as append().
  explicit rate_copy_lines(const std::string& rate_table_id) : begin_(rate_table_id + ",") {}

  /// Appends the record as a line of the COPY's 17 columns; absent values are "NULL", money has six
  /// decimals. Until the last line the records' list must not be cleared.
  void append(std::string& buffer, const import_record& record);

 private:
  std::string begin_;
  const import_terms* terms_ = nullptr;  ///< of the line before
  std::string end_;                      ///< the columns that come from them, with the line feed
};

/// Appends the number as "%f" would print it, whatever its size.
void append_money(std::string& buffer, float amount);
