#include "tools/conf_connect.h"

#include <set>
#include <string_view>

#include "db/qvn_pg_connection.h"
#include "tools/conf_statements.h"

namespace {

constexpr const char* kLabel = "Configuration check";

/// The server checks tables, columns and rights of a statement that it only explains, and says when
/// a policy would hide rows from the role. A table that is locked is not waited for.
constexpr const char* kNothingChanges =
    "SET default_transaction_read_only = on; SET row_security = off; SET lock_timeout = '2s'";

constexpr const char* kIsReadOnly =
    "SELECT 'x' WHERE current_setting('transaction_read_only')::boolean";

/// The newest tables of calls, as they are made day by day: whoever forgets their rights forgets
/// them for the last ones.
constexpr const char* kNewestDays =
    "SELECT DISTINCT relname FROM pg_class WHERE relname ~ '^client_cdr[0-9]{8}$'"
    " AND relkind IN ('r', 'p', 'v', 'm', 'f') ORDER BY relname DESC LIMIT 7";

/// $1 table, $2 right, $3 columns or an empty text. The GRANT of what the role lacks on the table
/// that it sees, or no row.
constexpr const char* kMissingGrant =
    "SELECT format('GRANT %s%s ON %s TO %I;', $2, columns,"
    "  regexp_replace(identity, '^public\\.', ''), current_user)"
    " FROM CAST(to_regclass($1) AS oid) AS seen, pg_identify_object('pg_class'::regclass, seen, 0),"
    " LATERAL (SELECT ' (' || string_agg(quote_ident(attname), ', ' ORDER BY attnum) || ')' AS"
    "   columns FROM pg_attribute WHERE attrelid = seen"
    "   AND attname = ANY (string_to_array($3, ','))"
    "   AND NOT has_column_privilege(seen, attnum, $2::text)) lacking"
    " WHERE columns IS NOT NULL OR ($3 = '' AND NOT has_table_privilege(seen, $2::text))";

/// $1 table. What shows the role a table that lies in a schema where it does not look, or no row.
constexpr const char* kHiddenTable =
    "SELECT concat_ws(' ', CASE WHEN NOT has_schema_privilege(n.oid, 'USAGE')"
    "  THEN format('GRANT USAGE ON SCHEMA %I TO %I;', nspname, current_user) END,"
    " CASE WHEN nspname <> ALL (regexp_split_to_array(replace(replace(path, '\"$user\"',"
    "   current_user), '\"', ''), ' *, *'))"
    "  THEN format('ALTER ROLE %I IN DATABASE %I SET search_path = %I, %s;', current_user,"
    "   current_database(), nspname, path) END)"
    " FROM pg_class c JOIN pg_namespace n ON n.oid = relnamespace,"
    "  current_setting('search_path') AS path"
    " WHERE relname = $1 AND relkind IN ('r', 'p', 'v', 'm', 'f') AND nspname !~ '^pg_'"
    "  AND nspname <> 'information_schema' ORDER BY nspname LIMIT 1";

/// The GRANTs that the default values of new rates lack on sequences.
constexpr const char* kMissingSequences =
    "SELECT format('GRANT USAGE ON SEQUENCE %s TO %I;',"
    "  regexp_replace(identity, '^public\\.', ''), current_user)"
    " FROM pg_attrdef a JOIN pg_depend d ON classid = 'pg_attrdef'::regclass AND objid = a.oid"
    "  AND refclassid = 'pg_class'::regclass JOIN pg_class s ON s.oid = refobjid,"
    " pg_identify_object('pg_class'::regclass, s.oid, 0)"
    " WHERE adrelid = to_regclass('rate') AND CASE"
    "  WHEN relkind = 'S' THEN NOT has_sequence_privilege(s.oid, 'USAGE, UPDATE') END";

struct refusal {
  std::string words;  ///< the server's; empty: there is none
  std::string state;  ///< its SQLSTATE
};

refusal refusal_of(PGconn* connection, const PGresult* result) {
  const ExecStatusType status = PQresultStatus(result);
  if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK) {
    return {};
  }
  const char* const words = PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY);
  const char* const state = PQresultErrorField(result, PG_DIAG_SQLSTATE);
  return {words ? words : PQerrorMessage(connection), state ? state : ""};
}

std::string first_line(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

/// Asks one database and reports on it.
class database_check {
 public:
  database_check(PGconn* connection, const conf_database& database, conf_findings& findings)
      : connection_(connection), database_(database), findings_(findings) {}

  void run() {
    if (!rows(kIsReadOnly).empty()) {
      report(
          "cannot work: the server takes no changes, it is a standby or"
          " default_transaction_read_only is on");
    }
    if (const refusal no = run(kNothingChanges); !no.words.empty()) {
      report("cannot work: " + first_line(no.words));
      return;
    }
    explain(conf_job_statements());
    for (const std::string& grant : rows(kMissingSequences)) {
      report_grant("imports fail", grant);
    }
    for (const std::string& table : rows(kNewestDays)) {
      explain(conf_day_statements(table));
    }
  }

 private:
  refusal run(const std::string& sql) {
    const pg_owned_result result(PQexec(connection_, sql.c_str()));
    return refusal_of(connection_, result.get());
  }

  /// The first column of what a query of this file gives. A catalogue that cannot be read is
  /// reported.
  std::vector<std::string> rows(const char* sql, const std::vector<const char*>& values = {}) {
    const pg_owned_result result(PQexecParams(connection_, sql, static_cast<int>(values.size()),
                                              nullptr, values.data(), nullptr, nullptr, 0));
    if (const refusal no = refusal_of(connection_, result.get()); !no.words.empty()) {
      report("cannot be checked: " + first_line(no.words));
    }
    const int count = PQntuples(result.get());
    std::vector<std::string> found;
    found.reserve(static_cast<std::size_t>(count));
    for (int row = 0; row < count; ++row) {
      found.emplace_back(PQgetvalue(result.get(), row, 0));
    }
    return found;
  }

  void explain(const std::vector<conf_statement>& statements) {
    for (const conf_statement& statement : statements) {
      if (PQstatus(connection_) != CONNECTION_OK) {
        return;  // has been reported
      }
      const refusal no = run("EXPLAIN " + statement.sql);
      if (!no.words.empty()) {
        report_refusal(statement, no);
      }
    }
  }

  void report_refusal(const conf_statement& statement, const refusal& no) {
    constexpr std::string_view kNoRight = "42501";
    constexpr std::string_view kNoTable = "42P01";
    const char* const table = statement.table.c_str();
    std::vector<std::string> grants;
    if (no.state == kNoRight) {
      grants = rows(kMissingGrant, {table, statement.right, statement.columns.c_str()});
    } else if (no.state == kNoTable) {
      grants = rows(kHiddenTable, {table});
    }
    for (const std::string& grant : grants) {
      report_grant(statement.failure, grant);
    }
    // A right that others need as well, SELECT, has been reported with the first of them.
    if (grants.empty() && !(no.state == kNoRight && refused_.contains(statement.table))) {
      report(meaning(statement, no) + ": " + first_line(no.words));
    }
    refused_.insert(statement.table);
  }

  /// What becomes of the jobs, unless the server has not said whether it would refuse the
  /// statement.
  [[nodiscard]] std::string meaning(const conf_statement& statement, const refusal& no) const {
    constexpr std::string_view kLocked = "55P03";
    const bool answered = PQstatus(connection_) == CONNECTION_OK && no.state != kLocked;
    return answered ? statement.failure : "table " + statement.table + " cannot be checked";
  }

  void report_grant(const char* failure, const std::string& grant) {
    if (said_.insert(grant).second) {
      report(std::string(failure) + " without: " + grant);
    }
  }

  void report(const std::string& text) {
    if (said_.insert(text).second) {
      findings_.add(database_.line, "section [" + database_.section + "]: " + text);
    }
  }

  PGconn* const connection_;
  const conf_database& database_;
  conf_findings& findings_;
  std::set<std::string> said_;     ///< what has been reported: GRANTs and whole texts
  std::set<std::string> refused_;  ///< tables that a statement was refused on
};

}  // namespace

void conf_check_connection(const conf_database& database, conf_findings& findings) {
  std::string failure;
  const pg_connection connection = qvn_pg_try_conn(database.conninfo.c_str(), kLabel, failure);
  if (connection) {
    database_check(connection.get(), database, findings).run();
  } else {
    findings.add(database.line,
                 "section [" + database.section + "]: cannot connect: " + first_line(failure));
  }
}
