// The daemon dies in the middle of its jobs, or is asked to end; docs/operation.md says what to do
// then.
#include <chrono>
#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <signal.h>
#include <thread>

#include "e2e/portal_world.h"
#include "faults/job_world.h"
#include "support/console.h"
#include "support/rounds.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

using support::Session;

using Jobs = std::vector<std::unique_ptr<faults::Job>>;

milliseconds since(steady_clock::time_point begin) {
  return std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
}

/// Two imports and a rerating, each of a second or so.
Jobs three_jobs() {
  Jobs jobs;
  jobs.push_back(faults::import_job("killed1", 12000, 1, "2024-03-01", ""));
  jobs.push_back(faults::import_job("killed2", 12000, 2, e2e::day(40), "2024-12-31 00:00:00+00"));
  jobs.push_back(faults::rerate_job("killed3", 15000));
  // Each step of the database write shall take about as long as the others.
  for (const auto& job : jobs)
    job->portal().query(
        "CREATE FUNCTION slowly() RETURNS trigger LANGUAGE plpgsql AS $$BEGIN"
        " IF random() < tg_argv[0]::float THEN PERFORM pg_sleep(0.001); END IF; RETURN new; END$$;"
        "CREATE TRIGGER copied BEFORE INSERT ON rate FOR EACH ROW WHEN (new.rate = 5)"
        " EXECUTE FUNCTION slowly(0.04);"
        "CREATE TRIGGER changed AFTER UPDATE OR DELETE ON rate FOR EACH ROW"
        " EXECUTE FUNCTION slowly(0.15)");
  return jobs;
}

void wait_end(const faults::Job& job) {
  EXPECT_TRUE(support::wait_until([&] { return job.ended(); })) << job.database();
}

/// Runs each job alone and keeps its result; how long each takes.
std::vector<milliseconds> undisturbed(const support::DaemonHarness& daemon, const Jobs& jobs) {
  std::vector<milliseconds> durations;
  for (const auto& job : jobs) {
    job->submit(daemon);
    EXPECT_TRUE(daemon.wait_log(job->begin_line()));
    const auto began = steady_clock::now();
    wait_end(*job);
    durations.push_back(since(began));
    job->keep_result();
  }
  return durations;
}

/// Ends the daemon by kill -9; how long that took.
milliseconds end_by_sigkill(support::DaemonHarness& daemon) {
  daemon.send(SIGKILL);
  EXPECT_EQ(daemon.wait_end().status, -SIGKILL);
  return {};
}

/// Consoles of all kinds: one that has not logged in, one with an answer on its way that it does
/// not read, one that only listens.
std::vector<support::Console> consoles(const support::DaemonHarness& daemon) {
  std::vector<support::Console> all;
  all.reserve(3);
  for (int i = 0; i < 3; i++)
    all.emplace_back(daemon.console_port());
  // Of those that have not logged in, the newest is served.
  EXPECT_TRUE(all[2].log_in());
  EXPECT_TRUE(all[1].log_in());
  all[1].send("reload_conf\r\nget_conf\r\n");
  return all;
}

/// What is left by the daemon that ended: checked, and brought to its end by the manual.
void recover(const Jobs& jobs, const std::string& started, std::map<std::string, int>& hits) {
  for (const auto& job : jobs) {
    faults::end_leftovers(*job, started);
    const std::string row = job->row();
    SCOPED_TRACE(job->database() + " at " + row);
    hits[job->database() + " " + row.substr(0, row.find(':'))]++;
    // One that had not begun may be the new daemon's by now.
    if (job->is_unattended()) {
      job->expect_allowed();
      job->recover();
    }
  }
}

using End = milliseconds (*)(support::DaemonHarness& daemon);

/// Ends the daemon in each round at another moment of another job, whatever the others have come to
/// then. With `held`, all jobs wait for a lock in each second round.
void end_again_and_again(const char* name, End end, bool held) {
  const int rounds = support::rounds_or(held ? 2 : 3);
  const unsigned seed = support::seed();
  std::mt19937 random(seed);
  printf("%s_seed %u\n", name, seed);
  for (const char* database : {"killed1", "killed2", "killed3"})
    e2e::drop_database(database);
  auto daemon = e2e::daemon_for({"killed1", "killed2", "killed3"});
  daemon->set_console("cli_connection_limit=5\n");
  daemon->write_main_conf("[general]\nlog_level=7\n");
  const Jobs jobs = three_jobs();
  daemon->start();
  const std::vector<milliseconds> durations = undisturbed(*daemon, jobs);
  std::map<std::string, int> hits;
  milliseconds longest{}, longest_end{};
  for (int round = 0; round < rounds && !testing::Test::HasFailure(); round++) {
    const std::vector<support::Console> clients = consoles(*daemon);
    const size_t target = static_cast<size_t>(round) % jobs.size();
    // Holds up all jobs as they come to their rates; their connections are encrypted.
    const bool locked = held && round % 2 == 1;
    std::vector<Session> lockers;
    // The target is the last one, so that it has not ended while the others are made.
    for (size_t i = 1; i <= jobs.size(); i++) {
      faults::Job& job = *jobs[(target + i) % jobs.size()];
      job.submit(*daemon);
      if (locked) {
        lockers.push_back(job.portal());
        lockers.back().query("BEGIN; LOCK TABLE rate IN ACCESS EXCLUSIVE MODE");
      }
    }
    const auto moment = std::uniform_int_distribution<long>(0, durations[target].count())(random);
    SCOPED_TRACE(jobs[target]->database() + " after " + std::to_string(moment) + " ms");
    EXPECT_TRUE(daemon->wait_log(jobs[target]->begin_line()));
    for (size_t i = 0; locked && i < jobs.size(); i++) {
      Session portal = jobs[i]->portal();
      EXPECT_TRUE(support::wait_until([&] { return e2e::waiting(portal); }));
      EXPECT_EQ(portal.value("SELECT bool_and(s.ssl) FROM pg_stat_activity a JOIN pg_stat_ssl s"
                             " USING (pid) WHERE a.wait_event_type = 'Lock' AND"
                             " a.datname = current_database()"),
                "t");
    }
    if (!locked)
      std::this_thread::sleep_for(milliseconds(moment));
    longest_end = std::max(longest_end, end(*daemon));
    lockers.clear();
    const auto died = steady_clock::now();
    const std::string started = e2e::cluster().connect("postgres").value("SELECT now()");
    daemon->start();
    recover(jobs, started, hits);
    for (const auto& job : jobs)
      wait_end(*job);
    longest = std::max(longest, since(died));
    for (const auto& job : jobs) {
      SCOPED_TRACE(job->database());
      job->expect_whole();
    }
  }
  for (const auto& [moment, count] : hits)
    printf("%s_hit %s: %d\n", name, moment.c_str(), count);
  printf("%s_rounds %d\n%s_longest_recovery %lld ms\n%s_longest_end %lld ms\n", name, rounds, name,
         static_cast<long long>(longest.count()), name,
         static_cast<long long>(longest_end.count()));
}

TEST(Kill, LosesNothingAndTheOperationManualBringsEveryJobToItsEnd) {
  end_again_and_again("kill", end_by_sigkill, false);
}

TEST(Kill, BySigtermEndsTheDaemonInOrderAndLosesNoMore) {
  e2e::cluster().offer_tls();
  end_again_and_again("sigterm", e2e::end_by_sigterm, true);
}

TEST(Kill, AnImportIsNotFinishedBehindALaterOneOfItsRateTable) {
  e2e::cluster().create_database("overtaken");
  Session portal = e2e::cluster().connect("overtaken");
  const std::string job = "INSERT INTO rate_upload_task (rate_table_id, status, progress) VALUES";
  portal.query(job + " (7, 3, 'Import rate to database')");
  e2e::store_rate(portal, "7", "44", "1", "2020-01-01");
  e2e::store_rate(portal, "7", "44", "2", "2024-03-01");
  portal.query(job + " (7, 4, 'Insert: 1, Delete: 0, Update: 0, Error: 0')");
  portal.query(faults::operator_block("-- Finish an import", {{"job", "1"}}));
  EXPECT_EQ(portal.value("SELECT status FROM rate_upload_task WHERE id = 1"), "3");
  EXPECT_EQ(e2e::rates(portal, "7"), "44|1|2020-01-01|\n44|2|2024-03-01|\n");
  EXPECT_EQ(portal.query(faults::operator_block("-- Codes with more than one")).size(), 1U);
}

}  // namespace
