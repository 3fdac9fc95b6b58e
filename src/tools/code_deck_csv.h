/// A code deck from a CSV file, in place of the portal's table `code`.
#pragma once

#include <string>

#include "rate_upload/code_decks.h"

/// Adds the file's rows to `deck`. Its first line names the columns, in any order: code and name,
/// perhaps code_id, code_deck_id and country; others are passed over. Rows are split as those that
/// the daemon loads: quotes are part of a value, and commas part of the last column. Rows without a
/// code_deck_id belong to deck `default_id`. False, with a line on standard error, when the file
/// cannot be used. Throws std::bad_alloc when memory runs out.
[[nodiscard]] bool code_deck_csv_load(const char* path, std::string default_id, code_decks& deck);
