// The daemon's end by SIGTERM at any moment of its work.
#include <chrono>
#include <cstdio>
#include <gtest/gtest.h>
#include <thread>

#include "e2e/import_world.h"
#include "e2e/rerate_world.h"
#include "support/console.h"
#include "support/rounds.h"

namespace {

using support::Console;
using support::DaemonHarness;
using support::Session;

const char* const kDatabases[] = {"term0", "term1", "term2", "term3", "term4"};

/// A deck whose import takes longer than the longest wait before the signal.
std::string large_deck() {
  std::string deck = "code,rate,effective_date\n";
  for (int code = 100000; code < 400000; code++)
    deck += std::to_string(code) + ",0.5,2024-03-01\n";
  return deck;
}

/// A daemon, and databases with a deck, and calls whose rating takes a while.
std::unique_ptr<DaemonHarness> world() {
  auto daemon = e2e::daemon_for({std::begin(kDatabases), std::end(kDatabases)});
  daemon->set_console("cli_connection_limit=5\n");
  daemon->write_main_conf("[general]\nlog_level=7\n[rerate]\ncdr_directory=" +
                          (daemon->path() / "cdr").string() + "\n");
  for (const char* name : kDatabases) {
    Session portal = e2e::cluster().connect(name);
    portal.query(e2e::rate_table("1") + e2e::trunk("1", "t"));
    e2e::store_calls(portal, "20260301", {e2e::call()});
    portal.query(
        "INSERT INTO client_cdr20260301 SELECT c.* FROM client_cdr20260301 c,"
        " generate_series(1, 100000)");
  }
  return daemon;
}

/// An import and a rerating in each database wait, and no traces of earlier ones.
void offer_ten_jobs(const DaemonHarness& daemon) {
  const std::string deck = large_deck();
  for (const char* name : kDatabases) {
    Session portal = e2e::cluster().connect(name);
    portal.query("TRUNCATE rate, rate_upload_task, rerate_cdr_task;" + e2e::rate("rate_id=0"));
    e2e::submit(portal, daemon.path(), deck, "7");
    e2e::rerate(portal, "ingress_trunk='1,1,1,0' egress_trunk='1,1,1,0'");
  }
}

/// How many jobs have begun and not ended.
int jobs_at_work() {
  int jobs = 0;
  for (const char* name : kDatabases)
    jobs += atoi(e2e::cluster()
                     .connect(name)
                     .value("SELECT count(*) FROM (SELECT status FROM rate_upload_task UNION ALL"
                            " SELECT status FROM rerate_cdr_task) j WHERE status BETWEEN 1 AND 3")
                     .c_str());
  return jobs;
}

/// Consoles of all kinds: one that only listens, one with an answer on its way that it does not
/// read, one that has not logged in.
std::vector<Console> consoles(const DaemonHarness& daemon) {
  std::vector<Console> all;
  all.reserve(3);
  for (int i = 0; i < 3; i++)
    all.emplace_back(daemon.console_port());
  EXPECT_TRUE(all[2].log_in());
  EXPECT_TRUE(all[1].log_in());
  all[1].send("reload_conf\r\nget_conf\r\n");
  return all;
}

/// All of the daemon's connections that are at work are encrypted.
void expect_tls(Session& portal) {
  EXPECT_EQ(portal.value("SELECT count(*) > 0 AND bool_and(s.ssl) FROM pg_stat_activity a"
                         " JOIN pg_stat_ssl s USING (pid) WHERE a.pid <> pg_backend_pid() AND"
                         " a.datname LIKE 'term%'"),
            "t");
}

/// Ends the daemon `delay` after ten jobs have begun; how long the end took.
std::chrono::milliseconds end_ten_jobs(DaemonHarness& daemon, std::chrono::milliseconds delay,
                                       bool held) {
  offer_ten_jobs(daemon);
  std::vector<Session> lockers;
  if (held) {
    for (const char* name : kDatabases) {
      lockers.push_back(e2e::cluster().connect(name));
      lockers.back().query("BEGIN; LOCK TABLE rate IN ACCESS EXCLUSIVE MODE");
    }
  }
  daemon.start();
  EXPECT_TRUE(support::wait_until([] { return jobs_at_work() == 10; })) << daemon.log();
  Session portal = e2e::cluster().connect("postgres");
  if (held)
    expect_tls(portal);
  const std::vector<Console> clients = consoles(daemon);
  std::this_thread::sleep_for(delay);
  return e2e::end_by_sigterm(daemon);
}

TEST(Sigterm, EndsTheDaemonInOrderWhileTenJobsAndConsolesUseIt) {
  e2e::cluster().offer_tls();
  const auto daemon = world();
  const int rounds = support::rounds_or(4);
  std::chrono::milliseconds longest{};
  int at_work = 0;
  for (int round = 0; round < rounds; round++) {
    SCOPED_TRACE("round " + std::to_string(round));
    // Another moment of the jobs' work in each round; each fourth time they wait for a lock.
    longest = std::max(longest, end_ten_jobs(*daemon, std::chrono::milliseconds(round * 37 % 1000),
                                             round % 4 == 3));
    at_work += jobs_at_work();
  }
  EXPECT_GT(at_work, rounds * 5) << "jobs ended before the daemon";
  printf("sigterm_rounds %d rounds\nsigterm_jobs_at_work %d jobs\nsigterm_longest_end %lld ms\n",
         rounds, at_work, static_cast<long long>(longest.count()));
}

}  // namespace
