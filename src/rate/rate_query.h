/// The statement by which both kinds of job load the rates of a rate table.
#pragma once

#include <cstdint>
#include <string>

/// A COPY, with a header line, of these columns of the table's rates that have not ended at `time`,
/// in seconds since the epoch. Throws std::bad_alloc when memory runs out.
[[nodiscard]] std::string rates_not_ended_copy(const char* columns,
                                               const std::string& rate_table_id, int64_t time);
