// Ten databases with both kinds of jobs and no pause, consoles that come and go, a log that rotates
// without end: a few seconds in the tests, minutes under the thread sanitizer, an hour as a soak.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <gtest/gtest.h>
#include <thread>

#include "faults/job_world.h"
#include "support/console.h"
#include "support/rounds.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;
using support::Console;
using support::DaemonHarness;
using support::Holdings;

/// One kind of job in one database, one job after the other; each is compared with the first one
/// when it has ended.
class Lane {
 public:
  Lane(std::unique_ptr<faults::Job> job, const DaemonHarness& daemon)
      : job_(std::move(job)), daemon_(daemon) {}

  /// Checks the job if it has ended, and offers the next one if there is to be one.
  void go_on(bool more) {
    if (busy_ && job_->ended()) {
      if (ended_++ == 0)
        job_->keep_result();
      job_->expect_whole();
      job_->forget_result();
      busy_ = false;
    }
    if (!busy_ && more)
      job_->submit(daemon_);
    busy_ = busy_ || more;
  }
  bool busy() const { return busy_; }
  int ended() const { return ended_; }

 private:
  std::unique_ptr<faults::Job> job_;
  const DaemonHarness& daemon_;
  bool busy_ = false;
  int ended_ = 0;
};

/// A console that lists and reloads the databases once a second, half of the time in a connection
/// of its own, until it is to stop; returns how often.
int keep_reloading(const DaemonHarness& daemon, const std::atomic<bool>& stop) {
  int reloads = 0;
  while (!stop) {
    const Console console(daemon.console_port());
    EXPECT_TRUE(console.log_in());
    for (int request = 0; request < 5 && !stop; request++, reloads++) {
      console.send("get_conf\r\nreload_conf\r\n");
      EXPECT_TRUE(console.read_until("reloaded successfully\r\n")
                      .ends_with("DB configuration file is reloaded successfully\r\n"));
      std::this_thread::sleep_for(std::chrono::seconds(1));
    }
  }
  return reloads;
}

/// The most that was held at a time in a part of the run.
void raise(Holdings& most, const Holdings& now) {
  most.memory = std::max(most.memory, now.memory);
  most.descriptors = std::max(most.descriptors, now.descriptors);
  most.threads = std::max(most.threads, now.threads);
}

void print(const char* when, const Holdings& most) {
  printf(
      "load_%s_memory %ld kB\nload_%s_descriptors %ld descriptors\nload_%s_threads %ld threads\n",
      when, most.memory, when, most.descriptors, when, most.threads);
}

/// A daemon whose log rotates again and again, and its databases.
std::unique_ptr<DaemonHarness> start_daemon(const std::vector<std::string>& databases) {
  auto daemon = e2e::daemon_for(databases);
  daemon->set_console("cli_connection_limit=5\n");
  daemon->write_main_conf("[general]\nlog_level=7\nmax_log_size=1\n");
  setenv("LD_PRELOAD", QVN_HASTY_LOG_CLOCK, 1);
  setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
  daemon->launch();
  unsetenv("LD_PRELOAD");
  unsetenv("ASAN_OPTIONS");
  EXPECT_TRUE(support::wait_until([&] { return Console(daemon->console_port()).connected(); }));
  return daemon;
}

constexpr int kSoak = 600;  // seconds from which the holdings of the run's parts are compared

TEST(Load, EveryJobEndsRightAndNothingGrowsWhileConsolesReloadAndTheLogRotates) {
  std::vector<std::string> databases;
  databases.reserve(10);
  for (int i = 0; i < 10; i++)
    databases.push_back("load" + std::to_string(i));
  auto daemon = start_daemon(databases);
  std::vector<std::unique_ptr<Lane>> lanes;
  lanes.reserve(12);
  for (size_t i = 0; i < 8; i++)
    lanes.push_back(std::make_unique<Lane>(
        faults::import_job(databases[i], 1000, 1, "2024-03-01", ""), *daemon));
  for (size_t i = 6; i < 10; i++)
    lanes.push_back(std::make_unique<Lane>(faults::rerate_job(databases[i], 500), *daemon));
  const Holdings before = daemon->holdings();

  std::atomic<bool> stop = false;
  int reloads = 0;
  std::thread console([&] { reloads = keep_reloading(*daemon, stop); });

  const std::chrono::seconds duration(support::rounds_or(15));
  const auto begin = steady_clock::now();
  Holdings most[3] = {};
  for (bool busy = true; busy;) {
    const auto passed = steady_clock::now() - begin;
    const bool more = passed < duration && !testing::Test::HasFailure();
    busy = more;
    for (const auto& lane : lanes) {
      lane->go_on(more);
      busy = busy || lane->busy();
    }
    raise(most[std::min<int64_t>(2, passed * 3 / duration)], daemon->holdings());
    if (passed > duration + std::chrono::minutes(3)) {
      ADD_FAILURE() << "the jobs do not end";
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  stop = true;
  console.join();

  int imports = 0, reratings = 0;
  for (size_t i = 0; i < lanes.size(); i++)
    (i < 8 ? imports : reratings) += lanes[i]->ended();
  printf("load_duration %d s\nload_imports %d jobs\nload_reratings %d jobs\nload_reloads %d\n",
         static_cast<int>(duration.count()), imports, reratings, reloads);
  print("before", before);
  print("first_third", most[0]);
  print("last_third", most[2]);
  EXPECT_GT(imports, 0);
  EXPECT_GT(reratings, 0);
  EXPECT_TRUE(fs::exists(daemon->path() / "log/qvn_web_helper.log.5"));
  EXPECT_TRUE(support::wait_until([&] {
    const Holdings now = daemon->holdings();
    return now.descriptors == before.descriptors && now.threads == before.threads;
  })) << daemon->holdings().descriptors
      << " descriptors, " << daemon->holdings().threads << " threads";
  // How many threads meet while one ends and the next begins is the machine's affair.
  if (duration.count() >= kSoak) {
    EXPECT_LE(most[2].memory, most[0].memory + 1024);
  }
  daemon->send(SIGTERM);
  EXPECT_EQ(daemon->wait_end().status, 0);
}

}  // namespace
