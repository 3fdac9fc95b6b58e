#include "e2e/import_world.h"

#include <gtest/gtest.h>

namespace e2e {
namespace {

using support::Session;

support::TestCluster* g_cluster = nullptr;

/// Stops the cluster while the test program is still whole.
class ClusterEnd : public testing::Environment {
 public:
  void TearDown() override {
    delete g_cluster;
    g_cluster = nullptr;
  }
};

const testing::Environment* const g_end = testing::AddGlobalTestEnvironment(new ClusterEnd);

}  // namespace

support::TestCluster& cluster() {
  if (g_cluster == nullptr)
    g_cluster = new support::TestCluster();
  return *g_cluster;
}

std::string submit(Session& portal, const std::filesystem::path& folder, const std::string& deck,
                   const std::string& rate_table, const Columns& columns) {
  support::write_file(folder / "deck.csv", deck);
  Columns all{{"upload_file_path", "'" + folder.string() + "'"},
              {"upload_format_file", "'deck.csv'"},
              {"rate_table_id", rate_table},
              {"rate_date_format", "'YYYY-MM-DD'"}};
  for (const auto& [name, value] : columns)
    all[name] = value;
  std::string names, values;
  for (const auto& [name, value] : all) {
    names += (names.empty() ? "" : ",") + name;
    values += (values.empty() ? "" : ",") + value;
  }
  return portal.value("INSERT INTO rate_upload_task (" + names + ") VALUES (" + values +
                      ") RETURNING id");
}

std::string outcome(Session& portal, const std::string& id) {
  const std::string row = " FROM rate_upload_task WHERE id = " + id;
  EXPECT_TRUE(support::wait_until([&] { return portal.value("SELECT status >= 4" + row) == "t"; }))
      << "job " << id << " does not end";
  return portal.value("SELECT status || ' ' || coalesce(progress, '')" + row);
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

void drop_database(const std::string& name) {
  cluster().connect("postgres").query("DROP DATABASE IF EXISTS " + name + " WITH (FORCE)");
}

std::unique_ptr<support::DaemonHarness> daemon_for(const std::vector<std::string>& databases) {
  for (const std::string& name : databases)
    cluster().create_database(name);
  auto daemon = std::make_unique<support::DaemonHarness>();
  daemon->write_databases(cluster().port(), databases);
  return daemon;
}

}  // namespace e2e
