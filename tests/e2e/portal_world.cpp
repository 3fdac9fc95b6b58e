#include "e2e/portal_world.h"

#include <ctime>
#include <gtest/gtest.h>
#include <signal.h>
#include <sstream>

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

Columns merged(Columns defaults, const Columns& columns) {
  for (const auto& [name, value] : columns)
    defaults[name] = value;
  return defaults;
}

Columns columns(const std::string& text) {
  Columns all;
  std::istringstream in(text);
  for (std::string word; in >> word;) {
    const size_t sign = word.find('=');
    EXPECT_NE(sign, std::string::npos) << text;
    all[word.substr(0, sign)] = word.substr(sign + 1);
  }
  return all;
}

std::string insertion(const std::string& table, const Columns& columns) {
  std::string names, values;
  for (const auto& [name, value] : columns) {
    names += (names.empty() ? "\"" : ",\"") + name + "\"";
    values += (values.empty() ? "" : ",") + value;
  }
  return "INSERT INTO " + table + " (" + names + ") VALUES (" + values + ")";
}

std::string job_end(Session& portal, const std::string& table, const std::string& id,
                    const std::string& expression) {
  const std::string row = " FROM " + table + " WHERE id = " + id;
  EXPECT_TRUE(support::wait_until([&] { return portal.value("SELECT status >= 4" + row) == "t"; }))
      << "job " << id << " does not end";
  return portal.value("SELECT " + expression + row);
}

bool waiting(Session& portal, int statements) {
  return portal.value(
             "SELECT count(*) FROM pg_stat_activity WHERE wait_event_type = 'Lock' AND"
             " datname = current_database()") == std::to_string(statements);
}

std::chrono::milliseconds end_by_sigterm(support::DaemonHarness& daemon) {
  const auto begin = std::chrono::steady_clock::now();
  daemon.send(SIGTERM);
  EXPECT_EQ(daemon.wait_end().status, 0);
  const auto end = std::chrono::steady_clock::now();
  const std::string log = daemon.log();
  for (const char* line : {"Receiving the termination signal, the qvn_web_helper start exit...\n",
                           "Waiting for qvn_web_helper exit...\n"})
    EXPECT_EQ(support::count_of(log, line), 1) << log;
  return std::chrono::duration_cast<std::chrono::milliseconds>(end - begin);
}

std::string day(int days) {
  const time_t then = time(nullptr) + days * time_t{86400};
  char text[16];
  strftime(text, sizeof text, "%Y-%m-%d", gmtime(&then));
  return text;
}

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

Call call(const std::string& columns) {
  Call all = e2e::columns(
      "session_id=s start_time_of_date=1772366400000000 routing_digits=442012345678"
      " call_duration=60 ingress_id=1 egress_id=1 translation_ani=12125550001 " +
      columns);
  all["time"] = "2026-03-01 12:01:00+00";
  return all;
}

void store_calls(Session& portal, const std::string& day, const std::vector<Call>& calls) {
  const std::string table = "client_cdr" + day;
  std::string text = "CREATE TABLE IF NOT EXISTS " + table + " (LIKE client_cdr INCLUDING ALL);";
  for (const Call& c : calls) {
    Columns columns;
    for (const auto& [name, value] : c)
      columns[name] = "'" + value + "'";
    text += insertion(table, columns) + ";";
  }
  portal.query(text);
}

std::string rate(const std::string& columns) {
  const char* const ordinary =
      "rate_table_id=1 code='44' code_name='UK' country='Britain' rate=0.1 seconds=60 interval=6"
      " min_time=0 grace_time=0 setup_fee=0 effective_date='2026-01-01T00:00:00Z' ";
  return insertion("rate", e2e::columns(ordinary + columns)) + ";";
}

std::string rate_table(const std::string& id, const std::string& columns) {
  return insertion("rate_table", e2e::columns("name='deck' rate_table_id=" + id + " " + columns)) +
         ";";
}

std::string trunk(const std::string& id, const std::string& alias, const std::string& decimals,
                  const std::string& rounding) {
  return insertion("resource", {{"resource_id", id},
                                {"alias", "'" + alias + "'"},
                                {"rate_decimal", decimals},
                                {"rate_rounding", rounding}}) +
         ";";
}

std::string rerate(Session& portal, const std::string& columns) {
  const std::string day = "from_time=1772323200 to_time=1772409599 ";
  return portal.value(insertion("rerate_cdr_task", e2e::columns(day + columns)) + " RETURNING id");
}

std::string rerated(Session& portal, const std::string& id) {
  return job_end(portal, "rerate_cdr_task", id, "err_code || ' ' || status || ' ' || progress");
}

std::string listed_files(Session& portal, const std::string& id) {
  return portal.value("SELECT cdr_file FROM rerate_cdr_task WHERE id = " + id);
}

std::filesystem::path cdr_file(Session& portal, const std::string& id, const std::string& trunk,
                               const std::string& date) {
  return portal.value("SELECT cdr_file_path FROM rerate_cdr_task WHERE id = " + id) + id + "-" +
         trunk + "-" + date + ".cdr";
}

std::filesystem::path output_folder(const std::filesystem::path& cdr_directory,
                                    const std::string& database, const std::string& id) {
  std::error_code none;
  for (const auto& date : std::filesystem::directory_iterator(cdr_directory, none)) {
    std::filesystem::path folder = date.path() / ("127.0.0.1-" + database) / id;
    if (std::filesystem::exists(folder))
      return folder;
  }
  return {};
}

}  // namespace e2e
