#include "tools/conf_statements.h"

#include <algorithm>
#include <string_view>

#include "rate_upload/code_decks.h"
#include "rate_upload/rate_copy_line.h"
#include "rate_upload/rate_load.h"
#include "rate_upload/rate_statements.h"
#include "rate_upload/rate_upload_row.h"
#include "rerate/rerate_cdr_load.h"
#include "rerate/rerate_rates.h"
#include "rerate/rerate_reference.h"
#include "rerate/rerate_row.h"
#include "rerate/rerate_settings.h"

namespace {

/// A key that fits columns of any type.
constexpr const char* kSomeKey = "0";

/// What lies between two texts of a statement, the last `end` of it.
std::string between(const std::string& sql, std::string_view begin, std::string_view end) {
  const std::size_t from = sql.find(begin) + begin.size();
  return sql.substr(from, sql.rfind(end) - from);
}

/// The query of a "copy (QUERY) to stdout ...".
std::string copied_query(const std::string& copy) {
  return between(copy, "(", ") to stdout");
}

/// A "copy TABLE (COLUMNS) to stdout ..." as a query.
std::string copied_table(const std::string& copy) {
  return "SELECT " + between(copy, "(", ")") + " FROM " + between(copy, "copy ", "(");
}

/// A "COPY TABLE(COLUMNS) FROM STDIN ..." as an INSERT.
std::string copied_rows(const std::string& copy) {
  const std::string target = between(copy, "COPY ", " FROM STDIN");
  std::string values = "NULL";
  for (auto commas = std::ranges::count(target, ','); commas > 0; --commas) {
    values += ",NULL";
  }
  return "INSERT INTO " + target + " VALUES (" + values + ")";
}

/// The columns that an UPDATE sets.
std::string set_columns(const std::string& update) {
  std::string columns;
  std::string word;
  bool quoted = false;
  for (const char c : between(update, " set ", " where ")) {
    quoted ^= c == '\'';
    if (quoted) {
      continue;
    }
    if (c == '=') {
      columns += (columns.empty() ? "" : ",") + word;
    } else if (c == ',') {
      word.clear();
    } else if (c != ' ') {
      word += c;
    }
  }
  return columns;
}

conf_statement updating(const char* failure, const char* table, const std::string& sql) {
  return {failure, table, "UPDATE", set_columns(sql), sql};
}

}  // namespace

std::vector<conf_statement> conf_job_statements() {
  const std::string some_end;
  return {
      {"imports are not found", "rate_upload_task", "SELECT", "", kRateUploadJobQuery},
      updating("imports do not begin or do not end", "rate_upload_task",
               rate_upload_row_final_update(0, {}, {}, 0, 0, "")),
      {"reratings are not found", "rerate_cdr_task", "SELECT", "", kRerateJobQuery},
      updating("reratings do not begin or do not end", "rerate_cdr_task",
               rerate_row_final_update(0, {}, {}, 0, 0, "")),
      {"imports fail, CALLS LEFT OUT (reratings show status 4)", "rate", "SELECT", "",
       copied_query(stored_rates_copy(kSomeKey, 0))},
      {"CALLS LEFT OUT (reratings show status 4)", "rate", "SELECT", "",
       copied_query(rerate_rates_copy(kSomeKey, 0))},
      {"imports fail", "rate", "INSERT", "", copied_rows(kRateCopy)},
      updating("WRONG PRICES (old rates do not end; imports show status 4)", "rate",
               rate_statement_writer(some_end).text({kSomeKey, 0})),
      {"WRONG PRICES (repeated rates stay; imports show status 4)", "rate", "DELETE", "",
       rate_statement_writer().text({kSomeKey, 0})},
      {"imports with code_deck_flag 1 fail", "code", "SELECT", "", copied_table(kCodeDeckCopy)},
      {"reratings fail", "rate_table", "SELECT", "", rerate_rate_table_query(kSomeKey)},
      {"WRONG PRICES (costs have no decimals; reratings show status 4)", "resource", "SELECT", "",
       rerate_resource_query(kSomeKey)},
      {"WRONG PRICES (no rate with a time profile is found; reratings show status 4)",
       "time_profile", "SELECT", "", copied_table(kTimeProfileCopy)},
      {"reratings with update_us_jurisdiction 1 fail", "jurisdiction_prefix", "SELECT", "",
       copied_table(kJurisdictionCopy)},
  };
}

std::vector<conf_statement> conf_day_statements(const std::string& table) {
  rerate_trunk trunk(call_side::ingress);
  trunk.id = kSomeKey;
  const std::string moment = "2026-01-31 12:00:00+00";
  const rerate_day day{.date = "", .table = table, .lower = moment, .upper = moment};
  const std::string during = rerate_time_condition(day);
  return {
      {"CALLS LEFT OUT (reratings show status 4)", table, "SELECT", "",
       copied_query(rerate_calls_copy(trunk, day, during, false))},
      {"CALLS LEFT OUT (by reratings with include_q850 1; they show status 4)", table, "SELECT", "",
       copied_query(rerate_calls_copy(trunk, day, during, true))},
  };
}
