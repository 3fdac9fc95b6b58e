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

bool wait_open_to_all(const std::filesystem::path& folder) {
  return support::wait_until([&] {
    return std::filesystem::status(folder).permissions() == std::filesystem::perms(0777);
  });
}

std::string waiting(Session& portal, const std::string& beginning, const std::string& action) {
  return portal.value("SELECT count(" + action +
                      ") FROM pg_stat_activity WHERE wait_event_type = 'Lock' AND"
                      " datname = current_database() AND starts_with(query, '" +
                      beginning + "')");
}

bool wait_waiting(Session& portal, const std::string& beginning) {
  return support::wait_until([&] { return waiting(portal, beginning, "pid") == "1"; });
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

}  // namespace e2e
