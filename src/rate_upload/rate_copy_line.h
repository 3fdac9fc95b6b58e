/// One line of the COPY into table `rate`. Pure.
#pragma once

#include <string>

#include "rate_upload/import_record.h"

/// Appends the record as a line of the COPY's 17 columns; absent values are "NULL", money has six
/// decimals. Throws std::bad_alloc when memory runs out.
void rate_copy_line_append(std::string& buffer, const std::string& rate_table_id,
                           const import_record& record);

/// Appends the number as "%f" would print it, whatever its size.
void append_money(std::string& buffer, float amount);
