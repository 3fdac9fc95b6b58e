// The daemon's end by SIGTERM at any moment of its work.
#include <chrono>
#include <cstdio>
#include <gtest/gtest.h>
#include <thread>

#include "e2e/import_world.h"
#include "support/rounds.h"

namespace {

using support::DaemonHarness;
using support::Session;

/// Starts a daemon with ten imports, each held up by a lock or at work on a large deck.
std::unique_ptr<DaemonHarness> ten_imports(bool held, std::vector<Session>& lockers) {
  std::vector<std::string> databases;
  for (int i = 0; i < 5; i++) {
    databases.push_back("ten" + std::to_string(i));
    e2e::drop_database(databases.back());
  }
  auto daemon = e2e::daemon_for(databases);
  std::string deck = "code,rate,effective_date\n";
  for (int code = 100000; !held && code < 400000; code++)
    deck += std::to_string(code) + ",0.5,2024-03-01\n";
  for (const std::string& name : databases) {
    lockers.push_back(e2e::cluster().connect(name));
    if (held)
      lockers.back().query("BEGIN; LOCK TABLE rate IN ACCESS EXCLUSIVE MODE");
    Session portal = e2e::cluster().connect(name);
    for (const char* rate_table : {"1", "2"})
      e2e::submit(portal, daemon->path(), deck + "44,1,2024-03-01\n", rate_table);
  }
  daemon->start();
  EXPECT_TRUE(daemon->wait_log("rate upload task 1 load rate data\n", 5));
  EXPECT_TRUE(daemon->wait_log("rate upload task 2 load rate data\n", 5));
  return daemon;
}

TEST(Sigterm, EndsTheDaemonInOrderWhileTenImportsRun) {
  const int rounds = support::rounds_or(3);
  std::chrono::milliseconds longest{};
  for (int round = 0; round < rounds; round++) {
    std::vector<Session> lockers;
    auto daemon = ten_imports(round % 4 == 0, lockers);
    // Another moment of the imports' work in each round.
    std::this_thread::sleep_for(std::chrono::milliseconds(round * 37 % 1000));
    SCOPED_TRACE("round " + std::to_string(round));
    longest = std::max(longest, e2e::end_by_sigterm(*daemon));
  }
  printf("sigterm_rounds %d rounds\nsigterm_longest_end %lld ms\n", rounds,
         static_cast<long long>(longest.count()));
}

}  // namespace
