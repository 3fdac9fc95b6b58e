/// A rate deck through the validation of the import worker; without a database, or compared with
/// what one holds.
#pragma once

#include <string>

#include "rate_upload/rate_upload_row.h"
#include "tools/tool_status.h"

struct rate_check_options {
  rate_upload_row job;                  ///< the row that would import the deck; id and deck unused
  const char* deck_path = nullptr;      ///< "-": standard input
  const char* codes_path = nullptr;     ///< code deck as CSV, or null
  const char* reimport_path = nullptr;  ///< gets the refused lines, or null
  std::string section;                  ///< of the database to compare with; empty: none
  const char* conf_folder = nullptr;    ///< the daemon's or its conf folder; null: the program's
  const char* changes_path = nullptr;   ///< gets the changes as CSV, or null
  bool names_are_utf8 = true;           ///< whether names in another encoding are reported
  bool quiet = false;                   ///< no messages
};

/// Checks the deck: messages, summary, columns, diseases, and what it would change on standard
/// output, what keeps the deck from being used on standard error. Throws std::bad_alloc when memory
/// runs out.
[[nodiscard]] tool_status rate_check(const rate_check_options& options);
