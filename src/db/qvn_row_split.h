/// Splitting one row of a COPY into its fields.
#pragma once

#include <span>
#include <string_view>

/// Splits a row in place at every "," into fields.size() texts, 2 or more; the last one runs to the
/// line feed, further commas included. A field of exactly two double quotes becomes empty; that is
/// all the CSV there is. When the row ends early the fields not reached keep what they held, and
/// the last one reached keeps its line feed.
void pg_row_csv_parse(char* row, std::span<char*> fields);
void pg_row_csv_parse(char* row, std::span<std::string_view> fields);
