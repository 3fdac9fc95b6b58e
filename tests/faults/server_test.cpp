// The database server fails while jobs work with it: connections that are cut or held up at any
// byte, backends and servers that die, locks, a full disk.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <pwd.h>
#include <random>
#include <thread>
#include <unistd.h>

#include "e2e/portal_world.h"
#include "faults/job_world.h"
#include "support/console.h"
#include "support/rounds.h"
#include "support/small_disk.h"
#include "support/tcp_proxy.h"

namespace {

using support::DaemonHarness;
using support::Session;
using support::TcpProxy;
using Act = TcpProxy::Act;
using Direction = TcpProxy::Direction;

/// What happens to the server while a job's connection is held up.
enum class Meanwhile { nothing, backend_dies, server_crashes, table_is_locked };

struct Fault {
  const char* name;
  Direction direction;  ///< in which the bytes are counted
  Act act;
  Meanwhile meanwhile = Meanwhile::nothing;
  bool ends_well = false;  ///< the job itself ends as if nothing had been
};

const Fault kFaults[] = {
    {"reset_sending", Direction::to_server, Act::reset},
    {"reset_receiving", Direction::to_client, Act::reset},
    {"close_sending", Direction::to_server, Act::close},
    {"close_receiving", Direction::to_client, Act::close},
    {"stall_sending", Direction::to_server, Act::hold, Meanwhile::nothing, true},
    {"stall_receiving", Direction::to_client, Act::hold, Meanwhile::nothing, true},
    {"backend_sending", Direction::to_server, Act::hold, Meanwhile::backend_dies},
    {"backend_receiving", Direction::to_client, Act::hold, Meanwhile::backend_dies},
    {"lock", Direction::to_server, Act::hold, Meanwhile::table_is_locked, true},
};
/// Hits all jobs at once, each at its own byte.
const Fault kCrash = {"crash", Direction::to_server, Act::hold, Meanwhile::server_crashes};

/// By then a worker has logged in and its row has left status 0, towards the server and back: about
/// 340 and 610 bytes. One in four faults comes before, when the daemon takes the job again by
/// itself. None holds a job up there: another poll may take a row that stays at 0 a second time.
constexpr long kBegun[] = {500, 1000};

/// One job whose daemon reaches the server through a door of its own.
struct Victim {
  const Fault* fault;
  bool import;
  std::unique_ptr<faults::Job> job;
  size_t door;
  long bytes[2] = {};  ///< of an undisturbed run
};

/// The victims of one daemon: an import and a rerating for each fault.
class Victims {
 public:
  Victims() : proxy_(e2e::cluster().port()) {
    std::string list;
    for (const Fault& fault : kFaults) {
      for (const bool import : {true, false}) {
        const std::string name = std::string(import ? "import_" : "rerate_") + fault.name;
        const int port = proxy_.open_door(import ? "Rate upload" : "Rerate Rate");
        list += support::database_section(name, port, name);
        e2e::cluster().create_database(name);
        const int action = static_cast<int>(all_.size() / 2) % 3;
        all_.push_back({&fault, import,
                        import ? faults::import_job(name, 2000, action, "2024-03-01", "")
                               : faults::rerate_job(name, 300),
                        all_.size()});
      }
    }
    daemon_.write_database_list(list);
    daemon_.start();
    run_undisturbed();
    for (Victim& v : all_) {
      v.job->keep_result();
      for (const Direction d : {Direction::to_server, Direction::to_client})
        v.bytes[static_cast<int>(d)] = proxy_.passed(v.door, d);
    }
  }

  /// What breaks each job, after how many bytes; below 0 it is left alone.
  struct Hit {
    const Fault* fault;
    long after;
  };
  using Plan = std::vector<Hit>;

  /// Every job by its own fault, or by `common`, each after another part of its bytes.
  Plan at_random(const Fault* common, std::mt19937& random) const;
  /// The imports cut at every so many bytes of their conversation, first one way, then the other.
  std::vector<Plan> sweep(long step) const;
  void break_all(const Plan& plan);

  /// All jobs again, with nothing in their way.
  void run_undisturbed() {
    submit();
    for (const Victim& v : all_)
      EXPECT_TRUE(support::wait_until([&] { return v.job->ended(); })) << v.job->row();
  }
  void expect_whole() const {
    for (const Victim& v : all_)
      v.job->expect_whole();
  }

  /// As many jobs are counted off as were counted on, and no database has one left. In between a
  /// job may be picked up before the one that ended just now is counted off.
  void expect_counts_balanced() const {
    const auto count = [&](const char* text) { return support::count_of(daemon_.log(), text); };
    EXPECT_TRUE(support::wait_until(
        [&] { return count("concurrent task count ") == count("task, current task count "); }));
    const std::string log = daemon_.log();
    for (const Victim& v : all_) {
      const size_t last = log.rfind("127.0.0.1-" + v.job->database() + " remove ");
      ASSERT_NE(last, std::string::npos) << v.job->database();
      EXPECT_TRUE(log.substr(last).starts_with(v.job->removed_line())) << log.substr(last, 200);
    }
  }

  std::map<std::string, int> hits;  ///< faults by name and the row's status and progress
  int missed = 0;                   ///< jobs that ended before their byte came
  std::chrono::milliseconds longest_recovery{};

 private:
  void submit() {
    for (const Victim& v : all_)
      v.job->submit(daemon_);
  }
  /// The row has ended, or its worker has left it as it is: it will not be taken again. The log may
  /// still end with an attempt that broke before the row said 1, so the row is asked for a worker,
  /// and asked first.
  bool over(const Victim& v) const {
    if (v.job->ended())
      return true;
    if (!v.job->is_unattended())
      return false;
    const std::string log = daemon_.log();
    const size_t begin = log.rfind(v.job->begin_line());
    return begin != std::string::npos &&
           log.find(v.job->removed_line(), begin) != std::string::npos;
  }
  void let_it_happen(const Victim& v, const Fault& fault, Session& locker);
  void check(const Victim& v, const Fault& fault);

  TcpProxy proxy_;
  DaemonHarness daemon_;
  std::vector<Victim> all_;
};

void Victims::let_it_happen(const Victim& v, const Fault& fault, Session& locker) {
  Session portal = v.job->portal();
  if (fault.meanwhile == Meanwhile::backend_dies)
    portal.query(
        "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname ="
        " current_database() AND application_name IN ('Rate upload', 'Rerate Rate')");
  // The job itself may hold a lock that is in the way.
  if (fault.meanwhile == Meanwhile::table_is_locked)
    locker.query(
        "BEGIN; DO $$BEGIN LOCK TABLE rate IN ACCESS EXCLUSIVE MODE NOWAIT;"
        " EXCEPTION WHEN lock_not_available THEN NULL; END$$");
  proxy_.release(v.door);
  if (fault.meanwhile == Meanwhile::table_is_locked) {
    EXPECT_TRUE(support::wait_until([&] { return v.job->ended() || e2e::waiting(portal); }));
    locker.query("ROLLBACK");
  }
}

void Victims::check(const Victim& v, const Fault& fault) {
  EXPECT_TRUE(support::wait_until([&] { return over(v); })) << v.job->row();
  const std::string row = v.job->row();
  hits[std::string(fault.name) + (v.import ? " import " : " rerating ") +
       row.substr(0, v.import ? row.find(':') : 1)]++;
  v.job->expect_allowed();
  if (fault.ends_well)
    v.job->expect_whole();
  v.job->recover();
}

Victims::Plan Victims::at_random(const Fault* common, std::mt19937& random) const {
  Plan plan;
  for (const Victim& v : all_) {
    const Fault& fault = common != nullptr ? *common : *v.fault;
    const int direction = static_cast<int>(fault.direction);
    long first = 0, last = v.bytes[direction] - 1;
    if (fault.act == Act::hold)
      first = kBegun[direction];
    else if (random() % 4 == 0)
      last = kBegun[direction];
    plan.push_back({&fault, std::uniform_int_distribution<long>(first, last)(random)});
  }
  return plan;
}

std::vector<Victims::Plan> Victims::sweep(long step) const {
  std::vector<Plan> plans;
  size_t next = all_.size();
  for (const Fault* const cut : {&kFaults[0], &kFaults[1]}) {
    const long bytes = all_[0].bytes[static_cast<int>(cut->direction)];
    for (long after = step; after < bytes + step; after += step) {
      if (next >= all_.size()) {
        plans.emplace_back(all_.size(), Hit{cut, -1});
        next = 0;
      }
      plans.back()[next] = {cut, after};
      next += 2;  // every other one is an import
    }
  }
  return plans;
}

void Victims::break_all(const Plan& plan) {
  for (const Victim& v : all_) {
    const auto& [fault, after] = plan[v.door];
    proxy_.arm(v.door, fault->direction, after, fault->act);
  }
  submit();
  for (const Victim& v : all_) {
    EXPECT_TRUE(support::wait_until([&] { return proxy_.has_acted(v.door) || v.job->ended(); }));
    Session locker = v.job->portal();
    if (!proxy_.has_acted(v.door))
      missed += plan[v.door].after < 0 ? 0 : 1;
    else if (plan[v.door].fault != &kCrash)
      let_it_happen(v, *plan[v.door].fault, locker);
  }
  if (plan[0].fault == &kCrash) {
    e2e::cluster().restart_immediate();
    for (const Victim& v : all_)
      proxy_.release(v.door);
  }
  const auto begin = std::chrono::steady_clock::now();
  for (const Victim& v : all_) {
    SCOPED_TRACE(v.job->database() + " after " + std::to_string(plan[v.door].after) + " bytes");
    check(v, *plan[v.door].fault);
  }
  for (const Victim& v : all_) {
    SCOPED_TRACE(v.job->database());
    EXPECT_TRUE(support::wait_until([&] { return v.job->ended(); }));
    if (v.job->row()[0] == '4')
      v.job->expect_whole();
  }
  longest_recovery =
      std::max(longest_recovery, std::chrono::duration_cast<std::chrono::milliseconds>(
                                     std::chrono::steady_clock::now() - begin));
}

TEST(Server, FaultsOfAnyKindAtAnyByteLoseNothingAndLeaveADaemonThatWorks) {
  const int rounds = support::rounds_or(1);
  const unsigned seed = support::seed();
  std::mt19937 random(seed);
  printf("server_seed %u\n", seed);
  Victims victims;
  for (int round = 0; round < rounds && !HasFailure(); round++) {
    SCOPED_TRACE("round " + std::to_string(round));
    victims.break_all(victims.at_random(nullptr, random));
    victims.break_all(victims.at_random(&kCrash, random));
  }
  // Each thousandth byte in the long form.
  for (const Victims::Plan& plan : victims.sweep(rounds > 1 ? 1000 : 25'000)) {
    if (!HasFailure())
      victims.break_all(plan);
  }
  victims.run_undisturbed();
  victims.expect_whole();
  victims.expect_counts_balanced();
  for (const auto& [name, count] : victims.hits)
    printf("server_hit %s: %d\n", name.c_str(), count);
  printf("server_missed %d\nserver_longest_recovery %lld ms\n", victims.missed,
         static_cast<long long>(victims.longest_recovery.count()));
}

/// The long form holds the import's COPY up until the socket buffers are full, and longer than any
/// limit of the system: the server is alive, and the import ends well.
TEST(Server, ConnectionsThatAreHeldUpForGoodHoldUpTheirOwnJobsOnly) {
  const bool long_form = support::rounds_or(1) > 1;
  TcpProxy proxy(e2e::cluster().port());
  DaemonHarness daemon;
  std::string list;
  std::vector<std::unique_ptr<faults::Job>> jobs;
  for (const char* name : {"stalled_import", "stalled_rerating", "served"}) {
    e2e::cluster().create_database(name);
    const bool import = jobs.size() != 1;
    int port = e2e::cluster().port();
    if (jobs.size() < 2) {
      port = proxy.open_door(import ? "Rate upload" : "Rerate Rate");
      const bool copy = import && long_form;
      proxy.arm(jobs.size(), copy ? Direction::to_server : Direction::to_client,
                copy ? 1'000'000 : 10'000, Act::hold);
    }
    list += support::database_section(name, port, name);
    const int lines = jobs.empty() && long_form ? 300'000 : 2000;
    jobs.push_back(import ? faults::import_job(name, lines, 1, "2024-03-01", "")
                          : faults::rerate_job(name, 300));
    jobs.back()->submit(daemon);
  }
  daemon.write_database_list(list);
  daemon.start();
  for (size_t door : {0U, 1U})
    EXPECT_TRUE(support::wait_until([&] { return proxy.has_acted(door); }));
  for (int job = 0; job < 2; job++) {
    EXPECT_TRUE(support::wait_until([&] { return jobs[2]->ended(); }));
    if (job == 0)
      jobs[2]->keep_result();
    else
      jobs[2]->expect_whole();
    jobs[2]->submit(daemon);
  }
  const support::Console console(daemon.console_port());
  EXPECT_TRUE(console.log_in());
  console.send("get_conf\r\n");
  EXPECT_NE(console.read_until("(3 rows)\r\n").find("served"), std::string::npos);
  for (size_t job = 0; job < 2; job++)
    EXPECT_FALSE(jobs[job]->ended()) << jobs[job]->row();
  if (long_form) {
    std::this_thread::sleep_for(std::chrono::seconds(100));
    EXPECT_EQ(jobs[0]->row(), "3 Import rate to database");
    proxy.release(0);
    EXPECT_TRUE(support::wait_until([&] { return jobs[0]->ended(); }, 300));
    EXPECT_EQ(jobs[0]->row()[0], '4') << jobs[0]->row();
  }
  printf("server_end_while_held_up %lld ms\n",
         static_cast<long long>(e2e::end_by_sigterm(daemon).count()));
}

TEST(Server, AFullDiskOfTheDatabaseLosesNothing) {
  const support::TempDir folder("");
  const passwd* user = getpwnam("postgres");
  const support::SmallDisk disk(folder.path(), "size=48m");
  if (!disk.mounted() || chown(folder.path().c_str(), user->pw_uid, user->pw_gid) != 0)
    GTEST_SKIP() << "only root can mount a small disk";
  const int rounds = support::rounds_or(3);
  constexpr long kMostLeft = 3L << 20;  // an import writes less
  Session server = e2e::cluster().connect("postgres");
  server.query("CREATE TABLESPACE small LOCATION '" + folder.path().string() + "'");
  for (const char* name : {"full_import", "full_rerating"})
    server.query("CREATE DATABASE " + std::string(name) +
                 " TEMPLATE template_portal TABLESPACE small");
  auto daemon = e2e::daemon_for({});
  daemon->write_databases(e2e::cluster().port(), {"full_import", "full_rerating"});
  std::vector<std::unique_ptr<faults::Job>> jobs;
  jobs.push_back(faults::rerate_job("full_rerating", 500));
  jobs.push_back(faults::import_job("full_import", 10000, 1, "2024-03-01", ""));
  const auto wait_ends = [&] {
    for (const auto& job : jobs)
      EXPECT_TRUE(support::wait_until([&] { return job->ended(); })) << job->row();
  };
  daemon->start();
  for (const auto& job : jobs)
    job->submit(*daemon);
  wait_ends();
  for (const auto& job : jobs)
    job->keep_result();
  std::map<std::string, int> outcomes;
  for (int round = 0; round < rounds && !HasFailure(); round++) {
    for (const auto& job : jobs)
      job->submit(*daemon);
    const long left = kMostLeft * round / rounds;
    SCOPED_TRACE(std::to_string(left) + " bytes left");
    disk.fill(left);
    wait_ends();
    disk.free();
    for (const auto& job : jobs) {
      job->expect_allowed();
      outcomes[job->database() + " " + job->row()]++;
    }
  }
  for (const auto& job : jobs)
    job->submit(*daemon);
  wait_ends();
  for (const auto& job : jobs)
    job->expect_whole();
  for (const auto& [outcome, count] : outcomes)
    printf("server_hit %s: %d\n", outcome.c_str(), count);
  printf("server_full_disk_rounds %d\n", rounds);
  daemon.reset();
  for (const char* name : {"full_import", "full_rerating"})
    e2e::drop_database(name);
  server.query("DROP TABLESPACE small");
}

}  // namespace
