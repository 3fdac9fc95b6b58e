#include "e2e/import_world.h"

namespace e2e {

using support::Session;

std::string submit(Session& portal, const std::filesystem::path& folder, const std::string& deck,
                   const std::string& rate_table, const Columns& columns) {
  support::write_file(folder / "deck.csv", deck);
  const Columns all = merged({{"upload_file_path", "'" + folder.string() + "'"},
                              {"upload_format_file", "'deck.csv'"},
                              {"rate_table_id", rate_table},
                              {"rate_date_format", "'YYYY-MM-DD'"}},
                             columns);
  return portal.value(insertion("rate_upload_task", all) + " RETURNING id");
}

std::string outcome(Session& portal, const std::string& id) {
  return job_end(portal, "rate_upload_task", id, "status || ' ' || coalesce(progress, '')");
}

std::string rates(Session& portal, const std::string& rate_table) {
  std::string text;
  for (const support::Row& row :
       portal.query("SET timezone = 'UTC';"
                    "SELECT code, trim_scale(rate), effective_date::date,"
                    " CASE WHEN end_date BETWEEN now() - interval '1 hour' AND now() THEN 'now'"
                    "      ELSE to_char(end_date, 'YYYY-MM-DD HH24:MI:SS') END"
                    " FROM rate WHERE rate_table_id = " +
                    rate_table + " ORDER BY code, effective_date, rate_id"))
    text += row[0] + "|" + row[1] + "|" + row[2] + "|" + row[3] + "\n";
  return text;
}

void store_rate(Session& portal, const std::string& rate_table, const std::string& code,
                const std::string& rate, const std::string& effective, const std::string& end) {
  portal.query("INSERT INTO rate (rate_table_id, code, rate, effective_date, end_date) VALUES (" +
               rate_table + ",'" + code + "'," + rate + ",'" + effective + " 00:00:00+00'," +
               (end.empty() ? "NULL" : "'" + end + "'") + ")");
}

}  // namespace e2e
