#include "tools/conf_connect.h"

#include "db/qvn_db.h"
#include "rate_upload/rate_upload_row.h"
#include "rerate/rerate_row.h"

namespace {

constexpr const char* kLabel = "Configuration check";

/// The server checks tables, columns and rights of a statement that it only explains.
constexpr const char* kNothingChanges = "SET default_transaction_read_only = on";

/// The server's words on a failure; empty when there is none.
std::string failure_of(PGconn* connection, const std::string& sql) {
  const pg_owned_result result(PQexec(connection, sql.c_str()));
  const ExecStatusType status = PQresultStatus(result.get());
  if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK) {
    return "";
  }
  const char* const words = PQresultErrorField(result.get(), PG_DIAG_MESSAGE_PRIMARY);
  return words ? words : PQerrorMessage(connection);
}

std::string first_line(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

}  // namespace

void conf_check_connection(const conf_database& database, conf_findings& findings) {
  const std::string section = "section [" + database.section + "]: ";
  std::string failure;
  const pg_connection connection = qvn_pg_try_conn(database.conninfo.c_str(), kLabel, failure);
  if (!connection) {
    findings.add(database.line, section + "cannot connect: " + first_line(failure));
    return;
  }
  failure = failure_of(connection.get(), kNothingChanges);
  for (const std::string& statement : {
           std::string(kRateUploadJobQuery),
           rate_upload_row_final_update(0, {}, {}, 0, 0, ""),
           std::string(kRerateJobQuery),
           rerate_row_final_update(0, {}, {}, 0, 0, ""),
       }) {
    if (failure.empty()) {
      failure = failure_of(connection.get(), "EXPLAIN " + statement);
    }
  }
  if (!failure.empty()) {
    findings.add(database.line, section + "cannot work: " + first_line(failure));
  }
}
