/// What the daemon sends to a database, as statements that the server can explain. No connection.
#pragma once

#include <string>
#include <vector>

/// One statement, and what becomes of the jobs when the server refuses it.
struct conf_statement {
  const char* failure;  ///< a clause: "imports fail"
  std::string table;    ///< that it is about
  const char* right;    ///< on that table: "SELECT"
  std::string columns;  ///< with a comma between them; empty: the right is on the table
  std::string sql;
};

/// Those of both kinds of job. SELECT comes first of a table's rights, since the others need it.
[[nodiscard]] std::vector<conf_statement> conf_job_statements();

/// The same of the calls in a day's table.
[[nodiscard]] std::vector<conf_statement> conf_day_statements(const std::string& table);
