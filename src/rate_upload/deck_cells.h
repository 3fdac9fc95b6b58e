/// The checks of a line's cells. Pure: values in, values and refusals out.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "rate_upload/deck_dates.h"
#include "rate_upload/deck_header.h"
#include "rate_upload/import_record.h"

/// Checks the cells of a line in column order and reads them into `values`, whose texts point into
/// the line. False at the first failure, with the line's message in `refusal`. Throws
/// std::bad_alloc when memory runs out.
[[nodiscard]] bool rate_line_check(const rate_header& header,
                                   std::span<const std::string_view> cells, int line_number,
                                   rate_date_reader& dates, import_values& values,
                                   std::string& refusal);

/// What a refused line's message says of every such line: "code invalid" of
/// "Line 3 : code invalid, 44x". Part of the message.
[[nodiscard]] std::string_view rate_refusal_reason(std::string_view message);
