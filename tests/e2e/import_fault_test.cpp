// Imports while something breaks: databases that do not answer, servers and connections that die.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "e2e/import_world.h"

namespace {

using e2e::waiting;
using support::DaemonHarness;
using support::Session;
using testing::HasSubstr;

const char* const kDeck = "code,rate,effective_date\n44,0.5,2024-03-01\n49,0.6,2024-03-01\n";
const char* const kSuccess = "4 Insert: 2, Delete: 0, Update: 1, Error: 0";

/// A job of rate table 8 shows that the daemon still works in this database.
void expect_next_job_works(const DaemonHarness& daemon, const std::string& database) {
  Session portal = e2e::cluster().connect(database);
  e2e::store_rate(portal, "8", "44", "9", "2020-01-01");
  EXPECT_EQ(e2e::outcome(portal, e2e::submit(portal, daemon.path(), kDeck, "8")), kSuccess);
}

/// A port that takes connections and never answers.
class SilentServer {
 public:
  SilentServer() : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), length), 0);
    EXPECT_EQ(listen(fd_, 100), 0);
    EXPECT_EQ(getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length), 0);
    port_ = ntohs(address.sin_port);
  }
  ~SilentServer() { close(fd_); }
  SilentServer(const SilentServer&) = delete;
  SilentServer& operator=(const SilentServer&) = delete;
  int port() const { return port_; }

 private:
  int fd_;
  int port_ = 0;
};

TEST(ImportFault, DatabasesThatDoNotAnswerAreSkippedAndTheOthersServed) {
  SilentServer silent;
  auto daemon = e2e::daemon_for({"served"});
  daemon->write_database_list(
      support::database_section("a", silent.port(), "silent") +
      support::database_section("b", e2e::cluster().port(), "served") +
      support::database_section("c", e2e::cluster().port(), "no_such_database"));
  daemon->start();
  expect_next_job_works(*daemon, "served");
  // Both broken ones are tried again in the next cycles.
  EXPECT_TRUE(daemon->wait_log("WEB task DB connect failed, PQstatus:1, ", 4));
  EXPECT_THAT(daemon->log(), HasSubstr("database \"no_such_database\" does not exist"));
}

/// What holds a job up in one phase, and how its connection is broken there.
struct Phase {
  const char* database;
  const char* lock;       ///< statement that another session runs first, and holds
  const char* waits_for;  ///< beginning of the daemon's statement that waits for the lock
  const char* failure;    ///< end of the job's last log line
  const char* rates;      ///< of rate table 7 afterwards
};

const Phase kPhases[] = {
    {"loading", "LOCK TABLE rate IN ACCESS EXCLUSIVE MODE", "copy (select",
     "execution failed, Load rate data failed\n", "44|9|2020-01-01|\n"},
    {"copying", "LOCK TABLE rate IN SHARE MODE", "COPY rate(",
     "execution failed, Copy rate header failed\n", "44|9|2020-01-01|\n"},
    {"updating", "SELECT * FROM rate FOR UPDATE", "update rate set",
     "have been completed, Insert: 2(2), Delete: 0, Update: 1, Error: 0, Reimport: 0\n",
     "44|9|2020-01-01|\n44|0.5|2024-03-01|\n49|0.6|2024-03-01|\n"},
};

/// Starts a job in each phase's database and waits until each is held up in its phase.
std::vector<Session> hold_up_jobs(DaemonHarness& daemon) {
  std::vector<Session> lockers;
  for (const Phase& phase : kPhases) {
    Session portal = e2e::cluster().connect(phase.database);
    e2e::store_rate(portal, "7", "44", "9", "2020-01-01");
    e2e::submit(portal, daemon.path(), kDeck, "7");
    lockers.push_back(e2e::cluster().connect(phase.database));
    lockers.back().query(std::string("BEGIN; ") + phase.lock);
  }
  daemon.start();
  for (const Phase& phase : kPhases) {
    Session portal = e2e::cluster().connect(phase.database);
    EXPECT_TRUE(e2e::wait_waiting(portal, phase.waits_for)) << phase.database;
  }
  return lockers;
}

std::vector<std::string> phase_databases() {
  std::vector<std::string> names;
  for (const Phase& phase : kPhases)
    names.emplace_back(phase.database);
  return names;
}

TEST(ImportFault, ABackendThatDiesInAnyPhaseEndsItsJobAndLosesNoStoredRate) {
  auto daemon = e2e::daemon_for(phase_databases());
  std::vector<Session> lockers = hold_up_jobs(*daemon);
  for (size_t i = 0; i < std::size(kPhases); i++) {
    SCOPED_TRACE(kPhases[i].database);
    Session portal = e2e::cluster().connect(kPhases[i].database);
    EXPECT_EQ(waiting(portal, kPhases[i].waits_for, "pg_terminate_backend(pid)"), "1");
    EXPECT_TRUE(daemon->wait_log("127.0.0.1-" + std::string(kPhases[i].database) +
                                 " remove import rate task, current task count 0\n"))
        << daemon->log();
    EXPECT_THAT(daemon->log(), HasSubstr(kPhases[i].failure));
    lockers[i].query("ROLLBACK");
    EXPECT_EQ(e2e::rates(portal, "7"), kPhases[i].rates);
    expect_next_job_works(*daemon, kPhases[i].database);
  }
}

TEST(ImportFault, ACancelledStatementFailsTheJobInItsRow) {
  auto daemon = e2e::daemon_for({"cancelled"});
  Session portal = e2e::cluster().connect("cancelled"),
          locker = e2e::cluster().connect("cancelled");
  locker.query("BEGIN; LOCK TABLE rate IN ACCESS EXCLUSIVE MODE");
  const std::string id = e2e::submit(portal, daemon->path(), kDeck, "7");
  daemon->start();
  EXPECT_TRUE(support::wait_until(
      [&] { return waiting(portal, "copy (select", "pg_cancel_backend(pid)") == "1"; }));
  EXPECT_EQ(e2e::outcome(portal, id), "5 Load rate data failed");
  locker.query("ROLLBACK");
  expect_next_job_works(*daemon, "cancelled");
}

}  // namespace
