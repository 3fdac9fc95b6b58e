// Which reratings the daemon takes, and when. What becomes of them stands in
// tests/pages/reratings.md.
#include <gtest/gtest.h>

#include "e2e/portal_world.h"

namespace {

using support::Session;

TEST(Rerate, TheLimitCountsWhatWaitsAndRunsInAllDatabases) {
  const std::vector<std::string> databases = {"rlimit1", "rlimit2", "rlimit3", "rlimit4"};
  auto daemon = e2e::daemon_for(databases);
  daemon->write_main_conf("[rerate]\nmax_rerate_task=5\n");
  std::vector<Session> portals, lockers;
  for (const std::string& name : databases) {
    portals.push_back(e2e::cluster().connect(name));
    lockers.push_back(e2e::cluster().connect(name));
    lockers.back().query("BEGIN; LOCK TABLE time_profile IN ACCESS EXCLUSIVE MODE");
    for (int job = 0; job < 2; job++)
      e2e::rerate(portals.back(), "ingress_trunk='1,0,,'");
  }
  daemon->start();
  // Three databases give two jobs each; the sixth is one more than the limit, and the fourth
  // database waits.
  EXPECT_TRUE(daemon->wait_log("Maximum rerate task in progress, can't start a new rerate task\n"));
  EXPECT_EQ(support::count_of(daemon->log(), "Added 127.0.0.1-rlimit"), 6);
  for (Session& locker : lockers)
    locker.query("ROLLBACK");
  for (Session& portal : portals) {
    for (const char* id : {"1", "2"})
      EXPECT_EQ(e2e::rerated(portal, id), "0 4 ");
  }
}

TEST(Rerate, AJobInWorkIsNotTakenTwiceAndItsIdIsFreeElsewhere) {
  auto daemon = e2e::daemon_for({"again1", "again2"});
  Session first = e2e::cluster().connect("again1"), second = e2e::cluster().connect("again2");
  Session locker = e2e::cluster().connect("again1");
  e2e::rerate(first, "ingress_trunk='1,0,,'");
  // The worker cannot leave status 0 behind.
  locker.query("BEGIN; SELECT * FROM rerate_cdr_task FOR UPDATE");
  daemon->start();
  EXPECT_TRUE(daemon->wait_log("127.0.0.1-again1 rerate task 1 have been in process\n"));
  e2e::rerate(second, "ingress_trunk='1,0,,'");
  EXPECT_EQ(e2e::rerated(second, "1"), "0 4 ");
  locker.query("ROLLBACK");
  EXPECT_EQ(e2e::rerated(first, "1"), "0 4 ");
}

}  // namespace
