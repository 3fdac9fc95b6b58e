#include "tools/tool_database.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <vector>

#include "db/qvn_db_conf.h"
#include "tools/conf_database_list.h"

namespace {

constexpr const char* kReadOnly = "SET default_transaction_read_only = on";

std::string names_of(const std::vector<conf_database>& databases) {
  std::string names;
  for (const conf_database& database : databases) {
    names += " [" + database.section + "]";
  }
  return names.empty() ? " none" : names;
}

pg_connection connect_read_only(const conf_database& database, const char* label,
                                std::string& failure) {
  pg_connection connection = qvn_pg_try_conn(database.conninfo.c_str(), label, failure);
  if (!connection) {
    failure = "cannot connect: " + failure.substr(0, failure.find('\n'));
    return nullptr;
  }
  const pg_owned_result result(PQexec(connection.get(), kReadOnly));
  if (PQresultStatus(result.get()) != PGRES_COMMAND_OK) {
    failure = PQerrorMessage(connection.get());
    return nullptr;
  }
  return connection;
}

}  // namespace

pg_connection tool_connect(const std::string& section, const char* label, std::string& failure) {
  conf_findings findings(g_core_ctrl->conf_dir + kDbConfFile);
  if (access(findings.path().c_str(), R_OK) != 0) {
    failure = findings.path() + ": " + std::strerror(errno);
    return nullptr;
  }
  const std::vector<conf_database> databases = conf_check_database_list(findings);
  const auto found = std::ranges::find(databases, section, &conf_database::section);
  if (found != databases.end()) {
    return connect_read_only(*found, label, failure);
  }
  failure = "no database [" + section + "] in " + findings.path() + ", which has" +
            names_of(databases) + "; qvn_conf_check may know more";
  return nullptr;
}
