// Which jobs the daemon takes, and when. What becomes of them stands in tests/pages.
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/qvn_socket.h"
#include "e2e/portal_world.h"

namespace {

using support::DaemonHarness;
using support::Session;
using testing::HasSubstr;

constexpr const char* kDeck = "code,rate,effective_date\n44,1,2024-03-01\n";
constexpr const char* kImported = "4 Insert: 1, Delete: 0, Update: 0, Error: 0";

/// Jobs of a kind that wait for a lock in its work.
struct Kind {
  const char* database;
  const char* conf;
  const char* log;
  const char* lock;
  std::string (*submit)(Session& portal, const DaemonHarness& daemon, int job);
  std::string (*outcome)(Session& portal, const std::string& id);
  const char* end;
};

std::string import(Session& portal, const DaemonHarness& daemon, int job) {
  return e2e::submit(portal, daemon.path(), kDeck, std::to_string(job));
}

std::string rerating(Session& portal, const DaemonHarness& /*daemon*/, int /*job*/) {
  return e2e::rerate(portal, "ingress_trunk='1,0,,'");
}

const Kind kKinds[] = {
    {"import", "[rate_upload]\nmax_rate_upload_task=5\n", "rate upload", "rate", import,
     e2e::outcome, kImported},
    {"rerate", "[rerate]\nmax_rerate_task=5\n", "rerate", "time_profile", rerating, e2e::rerated,
     "0 4 "},
};

TEST(Jobs, TheLimitCountsWhatWaitsAndRunsInAllDatabases) {
  std::vector<std::unique_ptr<DaemonHarness>> daemons;
  std::vector<Session> portals, lockers;
  for (const Kind& kind : kKinds) {
    std::vector<std::string> databases;
    for (const char* number : {"1", "2", "3", "4"})
      databases.push_back(kind.database + std::string(number));
    daemons.push_back(e2e::daemon_for(databases));
    daemons.back()->write_main_conf(kind.conf);
    for (const std::string& name : databases) {
      portals.push_back(e2e::cluster().connect(name));
      lockers.push_back(e2e::cluster().connect(name));
      lockers.back().query("BEGIN; LOCK TABLE " + std::string(kind.lock));
      for (const int job : {1, 2})
        kind.submit(portals.back(), *daemons.back(), job);
    }
    daemons.back()->start();
  }
  for (size_t i = 0; i < portals.size(); i++) {
    const Kind& kind = kKinds[i / 4];
    const DaemonHarness& daemon = *daemons[i / 4];
    // Three databases give two jobs each; the sixth is one more than the limit, and the fourth
    // database waits.
    EXPECT_TRUE(daemon.wait_log("Maximum " + std::string(kind.log) +
                                " task in progress, can't start a new " + kind.log + " task\n"));
    EXPECT_TRUE(i % 4 != 0 || support::count_of(daemon.log(), "Added 127.0.0.1-") == 6);
    lockers[i].query("ROLLBACK");
  }
  for (size_t i = 0; i < portals.size(); i++) {
    for (const char* id : {"1", "2"})
      EXPECT_EQ(kKinds[i / 4].outcome(portals[i], id), kKinds[i / 4].end);
  }
}

TEST(Jobs, WhatIsInWorkIsNotTakenTwice) {
  auto daemon = e2e::daemon_for({"twice", "again1", "again2"});
  // A rate table.
  Session portal = e2e::cluster().connect("twice"), locker = e2e::cluster().connect("twice");
  locker.query("BEGIN; LOCK TABLE rate IN ACCESS EXCLUSIVE MODE");
  const std::string first = e2e::submit(portal, daemon->path(), kDeck, "7");
  const std::string second = e2e::submit(portal, daemon->path(), kDeck, "7");
  // A rerating, which cannot leave status 0; its id is free in another database.
  Session again = e2e::cluster().connect("again1"), other = e2e::cluster().connect("again2");
  Session again_locker = e2e::cluster().connect("again1");
  e2e::rerate(again, "ingress_trunk='1,0,,'");
  again_locker.query("BEGIN; SELECT * FROM rerate_cdr_task FOR UPDATE");
  daemon->start();
  EXPECT_TRUE(
      daemon->wait_log("The rate table 127.0.0.1-twice of 7 have been in rate import process, "
                       "wait other task complete\n"));
  EXPECT_TRUE(daemon->wait_log("127.0.0.1-again1 rerate task 1 have been in process\n"));
  EXPECT_EQ(portal.value("SELECT status FROM rate_upload_task WHERE id = " + second), "0");
  e2e::rerate(other, "ingress_trunk='1,0,,'");
  EXPECT_EQ(e2e::rerated(other, "1"), "0 4 ");
  locker.query("ROLLBACK");
  again_locker.query("ROLLBACK");
  EXPECT_EQ(e2e::rerated(again, "1"), "0 4 ");
  for (const std::string& job : {first, second})
    EXPECT_EQ(e2e::outcome(portal, job), kImported);
}

TEST(Jobs, DatabasesThatDoNotAnswerAreSkippedAndTheOthersServed) {
  const int silent = support::free_port();
  const qvn_fd never_answers(
      qvn_tcp_socket_and_listen("127.0.0.1", static_cast<uint16_t>(silent), 100));
  auto daemon = e2e::daemon_for({"locked", "served"});
  std::string list;
  for (const char* name : {"silent", "silent2", "silent3", "silent4"})
    list += support::database_section(name, silent, name);
  for (const char* name : {"locked", "served", "no_such_database"})
    list += support::database_section(name, e2e::cluster().port(), name);
  daemon->write_database_list(list);
  Session locker = e2e::cluster().connect("locked"), locked = e2e::cluster().connect("locked");
  const std::string waiting = e2e::submit(locked, daemon->path(), kDeck, "8");
  locker.query("BEGIN; LOCK TABLE rerate_cdr_task IN ACCESS EXCLUSIVE MODE");
  setenv("PGCONNECT_TIMEOUT", "2", 1);
  daemon->start();
  unsetenv("PGCONNECT_TIMEOUT");
  Session portal = e2e::cluster().connect("served");
  EXPECT_EQ(e2e::outcome(portal, e2e::submit(portal, daemon->path(), kDeck, "8")), kImported);
  // All broken ones are tried again in the next cycles.
  EXPECT_TRUE(daemon->wait_log("WEB task DB connect failed, PQstatus:1, ", 10));
  locker.query("ROLLBACK");
  EXPECT_EQ(e2e::outcome(locked, waiting), kImported);
  EXPECT_THAT(daemon->log(), HasSubstr("database \"no_such_database\" does not exist"));
}

}  // namespace
