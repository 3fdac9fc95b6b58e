/// Why a call costs what it costs: the call, the rates and the settings from the database, priced
/// as a rerating prices them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "rerate/cdr_columns.h"
#include "tools/tool_status.h"

struct price_check_options {
  std::string section;  ///< of the database list
  std::optional<call_side> side;
  std::string trunk_id;
  std::string rate_table_id;
  std::string session_id;      ///< of the call's record; empty: a call is made up
  std::optional<int64_t> day;  ///< a moment of it, seconds since the epoch
  std::string number;          ///< of the call that is made up, as the next three
  std::string ani;
  std::optional<int64_t> at;  ///< when it begins, seconds since the epoch
  int64_t seconds = 0;
  std::optional<int64_t> rate_date;  ///< whose rates count; none: the beginning of the day's
  bool jurisdictions = false;        ///< as the job row's update_us_jurisdiction
  bool local_rates = false;          ///< as its update_local_rate
  bool all_columns = false;
};

/// Prints the explanation of each call on standard output, and why there is none on standard error.
/// Moments are after the first day of the epoch. kNothingToSay: priced; kFindings: a call has no
/// price. Needs a tool_core. Throws std::bad_alloc when memory runs out.
[[nodiscard]] tool_status price_check(const price_check_options& options);
