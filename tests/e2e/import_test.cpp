// Which imports the daemon takes, and when. What becomes of them stands in tests/pages/imports.md.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/qvn_socket.h"
#include "e2e/portal_world.h"

namespace {

using support::Session;
using testing::HasSubstr;

TEST(Import, TheLimitCountsWhatWaitsAndRunsInAllDatabases) {
  const std::vector<std::string> databases = {"limit1", "limit2", "limit3", "limit4"};
  auto daemon = e2e::daemon_for(databases);
  daemon->write_main_conf("[rate_upload]\nmax_rate_upload_task=5\n");
  std::vector<Session> portals, lockers;
  for (const std::string& name : databases) {
    portals.push_back(e2e::cluster().connect(name));
    lockers.push_back(e2e::cluster().connect(name));
    lockers.back().query("BEGIN; LOCK TABLE rate IN ACCESS EXCLUSIVE MODE");
    for (const char* rate_table : {"1", "2"})
      e2e::submit(portals.back(), daemon->path(), "code,effective_date\n44,2024-03-01\n",
                  rate_table);
  }
  daemon->start();
  // Three databases give two jobs each; the sixth is one more than the limit, and the fourth
  // database waits.
  EXPECT_TRUE(daemon->wait_log(
      "Maximum rate upload task in progress, can't start a new rate upload task\n"));
  EXPECT_EQ(support::count_of(daemon->log(), "Added 127.0.0.1-limit"), 6);
  for (Session& locker : lockers)
    locker.query("ROLLBACK");
  for (Session& portal : portals) {
    for (const char* id : {"1", "2"})
      EXPECT_EQ(e2e::outcome(portal, id), "4 Insert: 1, Delete: 0, Update: 0, Error: 0");
  }
}

TEST(Import, ARateTableInWorkIsNotTakenTwice) {
  auto daemon = e2e::daemon_for({"twice"});
  Session portal = e2e::cluster().connect("twice"), locker = e2e::cluster().connect("twice");
  locker.query("BEGIN; LOCK TABLE rate IN ACCESS EXCLUSIVE MODE");
  const std::string deck = "code,rate,effective_date\n44,1,2024-03-01\n";
  const std::string first = e2e::submit(portal, daemon->path(), deck, "7");
  const std::string second = e2e::submit(portal, daemon->path(), deck, "7");
  daemon->start();
  EXPECT_TRUE(
      daemon->wait_log("The rate table 127.0.0.1-twice of 7 have been in rate import process, "
                       "wait other task complete\n"));
  EXPECT_EQ(portal.value("SELECT status FROM rate_upload_task WHERE id = " + second), "0");
  locker.query("ROLLBACK");
  EXPECT_EQ(e2e::outcome(portal, first), "4 Insert: 1, Delete: 0, Update: 0, Error: 0");
  EXPECT_EQ(e2e::outcome(portal, second), "4 Insert: 1, Delete: 0, Update: 0, Error: 0");
}

TEST(Import, DatabasesThatDoNotAnswerAreSkippedAndTheOthersServed) {
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
  const std::string deck = "code,effective_date\n44,2024-03-01\n";
  const std::string waiting = e2e::submit(locked, daemon->path(), deck, "8");
  locker.query("BEGIN; LOCK TABLE rerate_cdr_task IN ACCESS EXCLUSIVE MODE");
  daemon->start();
  Session portal = e2e::cluster().connect("served");
  EXPECT_EQ(e2e::outcome(portal, e2e::submit(portal, daemon->path(), deck, "8")),
            "4 Insert: 1, Delete: 0, Update: 0, Error: 0");
  // All broken ones are tried again in the next cycles.
  EXPECT_TRUE(daemon->wait_log("WEB task DB connect failed, PQstatus:1, ", 10));
  locker.query("ROLLBACK");
  EXPECT_EQ(e2e::outcome(locked, waiting), "4 Insert: 1, Delete: 0, Update: 0, Error: 0");
  EXPECT_THAT(daemon->log(), HasSubstr("database \"no_such_database\" does not exist"));
}

}  // namespace
