/// A rate deck through the validation of the import worker, without database and job.
#pragma once

#include <string>

#include "rate_upload/deck_dates.h"
#include "tools/tool_status.h"

struct rate_check_options {
  date_format format = date_format::unsupported;
  const char* deck_path = nullptr;      ///< "-": standard input
  const char* codes_path = nullptr;     ///< code deck as CSV, or null: names come from the deck
  std::string code_deck_id;             ///< the deck of that file to be used; empty: any
  const char* reimport_path = nullptr;  ///< gets the refused lines, or null
  bool names_are_utf8 = true;           ///< whether names in another encoding are reported
  bool quiet = false;                   ///< only the summary and what is wrong with the whole deck
};

/// Checks the deck: messages, summary, columns and diseases on standard output, what keeps the deck
/// from being used on standard error. Throws std::bad_alloc when memory runs out.
[[nodiscard]] tool_status rate_check(const rate_check_options& options);
