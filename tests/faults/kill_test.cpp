// The daemon dies in the middle of its jobs; docs/operation.md tells what to do then.
#include <chrono>
#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <signal.h>
#include <thread>

#include "e2e/import_world.h"
#include "faults/job_world.h"
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

TEST(Kill, LosesNothingAndTheOperationManualBringsEveryJobToItsEnd) {
  const int rounds = support::rounds_or(6);
  const unsigned seed = support::seed();
  std::mt19937 random(seed);
  printf("kill_seed %u\n", seed);
  auto daemon = e2e::daemon_for({"killed1", "killed2", "killed3"});
  const Jobs jobs = three_jobs();
  daemon->start();
  const std::vector<milliseconds> durations = undisturbed(*daemon, jobs);

  std::map<std::string, int> hits;
  milliseconds longest{};
  for (int round = 0; round < rounds && !testing::Test::HasFailure(); round++) {
    for (const auto& job : jobs)
      job->submit(*daemon);
    // Another moment of another job in each round, whatever the other two have come to then.
    const size_t target = static_cast<size_t>(round) % jobs.size();
    const auto moment = std::uniform_int_distribution<long>(0, durations[target].count())(random);
    SCOPED_TRACE(jobs[target]->database() + " after " + std::to_string(moment) + " ms");
    EXPECT_TRUE(daemon->wait_log(jobs[target]->begin_line()));
    std::this_thread::sleep_for(milliseconds(moment));
    daemon->send(SIGKILL);
    EXPECT_EQ(daemon->wait_end().status, -SIGKILL);
    const auto died = steady_clock::now();
    const std::string started = e2e::cluster().connect("postgres").value("SELECT now()");
    daemon->start();
    for (const auto& job : jobs) {
      faults::end_leftovers(*job, started);
      const std::string row = job->row();
      SCOPED_TRACE(job->database() + " at " + row);
      hits[job->database() + " " + row.substr(0, row.find(':'))]++;
      // One that had not begun may be the new daemon's by now.
      if (job->is_nobodys()) {
        job->expect_allowed();
        job->recover();
      }
    }
    for (const auto& job : jobs)
      wait_end(*job);
    longest = std::max(longest, since(died));
    for (const auto& job : jobs) {
      SCOPED_TRACE(job->database());
      job->expect_whole();
    }
  }
  for (const auto& [moment, count] : hits)
    printf("kill_hit %s: %d\n", moment.c_str(), count);
  printf("kill_rounds %d\nkill_longest_recovery %lld ms\n", rounds,
         static_cast<long long>(longest.count()));
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
