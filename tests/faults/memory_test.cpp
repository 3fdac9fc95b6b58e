// Memory runs out: every allocation of a job, a reload, a console session and a start fails, once
// or with all that follow. The short form takes one number of many; scripts/endure takes each.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "e2e/import_world.h"
#include "e2e/rerate_world.h"
#include "faults/memory_faults.h"
#include "support/console.h"
#include "support/rounds.h"

namespace {

using support::Console;
using support::count_of;
using support::DaemonHarness;
using support::Session;
using support::wait_until;
using testing::AnyOf;
using testing::HasSubstr;

/// The table of failures; every daemon started in its life has the library that reads it.
class FaultTable {
 public:
  FaultTable() : folder_("") {
    // The server starts without it, and lets the daemon in without the many thousand allocations by
    // which it would prove its password.
    e2e::cluster()
        .connect("postgres")
        .query(
            "DO $$ BEGIN EXECUTE format('COPY (SELECT ''host all all 127.0.0.1/32 trust'') TO %L',"
            " current_setting('hba_file')); END $$; SELECT pg_reload_conf()");
    const std::string path = folder_.path() / "faults";
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    EXPECT_EQ(ftruncate(file, sizeof(MemoryFaults)), 0);
    table_ = static_cast<MemoryFaults*>(
        mmap(nullptr, sizeof(MemoryFaults), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
    close(file);
    setenv("QVN_MEMORY_FAULTS", path.c_str(), 1);
    setenv("LD_PRELOAD", QVN_MEMORY_FAULTS, 1);
  }
  ~FaultTable() {
    unsetenv("LD_PRELOAD");
    munmap(table_, sizeof(MemoryFaults));
  }
  FaultTable(const FaultTable&) = delete;
  FaultTable& operator=(const FaultTable&) = delete;

  MemoryFaults* operator->() const { return table_; }

  /// Gives the thread a place of the table, in which nothing is counted yet and nothing fails.
  MemoryTarget& watch(size_t place, const std::string& thread) {
    MemoryTarget& target = table_->targets[place];
    target.thread[thread.copy(target.thread, sizeof target.thread - 1)] = '\0';
    target.fail_at = target.step = target.seen = target.failed = 0;
    target.begun = target.ended = 0;
    target.from_then_on = false;
    table_->version++;
    return target;
  }

  /// Remembers how little the daemon holds between the visits of the poller.
  void remember_rest() {
    resting_blocks_ = table_->live_blocks;
    resting_bytes_ = table_->live_bytes;
    wait_until(
        [&] {
          resting_blocks_ = std::min<int64_t>(resting_blocks_, table_->live_blocks);
          resting_bytes_ = std::min<int64_t>(resting_bytes_, table_->live_bytes);
          return false;
        },
        kOneVisit);
  }
  /// Waits until it holds no more than that; blocks of one size differ by a few bytes.
  void expect_rest() const {
    EXPECT_TRUE(wait_until([&] {
      return table_->live_blocks <= resting_blocks_ &&
             table_->live_bytes <= resting_bytes_ + kDifferences;
    })) << table_->live_blocks - resting_blocks_
        << " blocks, " << table_->live_bytes - resting_bytes_ << " bytes are kept";
  }

 private:
  static constexpr int kOneVisit = 6;  // seconds
  static constexpr int64_t kDifferences = 16384;

  support::TempDir folder_;
  MemoryFaults* table_;
  int64_t resting_blocks_ = 0;
  int64_t resting_bytes_ = 0;
};

/// One failure in the short form stands for so many.
uint32_t stride() {
  return static_cast<uint32_t>(support::rounds_or(14));
}

/// What a sweep has come to.
struct Sweep {
  const char* name;
  bool from_then_on;
  uint32_t numbers = 0;   ///< of allocations that were to fail
  uint32_t failures = 0;  ///< allocations that failed
  uint32_t last = 0;      ///< the last number that was reached

  /// Takes the result of one number; whether it was reached.
  bool count(uint32_t number, const MemoryTarget& target) {
    numbers++;
    failures += target.failed;
    if (target.failed > 0)
      last = std::max(last, number);
    return target.failed > 0;
  }
  void print() const {
    printf("memory_%s_%s %u numbers, last %u, %u failures\n", name, from_then_on ? "all" : "once",
           numbers, last, failures);
  }
};

constexpr const char* kAlias = "a_trunk_with_a_name_that_takes_memory";

// --- an import
// ------------------------------------------------------------------------------------------

void store_import_world(Session& portal) {
  portal.query(
      "INSERT INTO code (code, code_deck_id, country, name) VALUES ('44', 1, 'United Kingdom',"
      " 'United Kingdom proper'), ('4', 1, 'World zone 4', 'Other countries of zone 4')");
}

void submit_import(Session& portal, const std::string& folder, const std::string& id) {
  e2e::store_rate(portal, id, "33", "1", "2020-01-01");
  e2e::store_rate(portal, id, "44", "9", "2020-01-01");
  e2e::store_rate(portal, id, "49", "9", "2024-03-01");
  portal.query(e2e::insertion("rate_upload_task", {{"id", id},
                                                   {"upload_file_path", "'" + folder + "'"},
                                                   {"upload_format_file", "'deck.csv'"},
                                                   {"rate_table_id", id},
                                                   {"rate_date_format", "'YYYY-MM-DD'"},
                                                   {"reduplicate_rate_action", "1"},
                                                   {"code_deck_flag", "1"}}));
}

std::string imported(bool ended, bool deleted) {
  return std::string("33|1|2020-01-01|\n44|9|2020-01-01|") + (ended ? "2024-02-29 23:59:59" : "") +
         "\n44|0.5|2024-03-01|\n" + (deleted ? "" : "49|9|2024-03-01|\n") +
         "49|0.6|2024-03-01|\n7|0.7|2024-03-01|\n";
}

/// The new rates are in, all or none, and only then old ones are ended or deleted; an import that
/// says that it is finished has kept the refused line.
void expect_imported(Session& portal, const std::string& id, bool undisturbed,
                     const std::string& status) {
  const std::string old = "33|1|2020-01-01|\n44|9|2020-01-01|\n49|9|2024-03-01|\n";
  const std::string rates = e2e::rates(portal, id);
  EXPECT_THAT(rates, AnyOf(old, imported(false, false), imported(false, true),
                           imported(true, false), imported(true, true)));
  const std::string row = " FROM rate_upload_task WHERE id = " + id;
  if (status == "4") {
    EXPECT_NE(rates, old);
    const std::filesystem::path folder = portal.value("SELECT result_file_path" + row);
    EXPECT_EQ(support::read_file(folder / "rate_reimport.csv"), "45,no number,2024-03-01\n");
    EXPECT_THAT(support::read_file(folder / "rate_import.log"), HasSubstr("Line 5 : "));
  }
  if (undisturbed) {
    EXPECT_EQ(rates, imported(true, true));
    EXPECT_EQ(portal.value("SELECT progress" + row), "Insert: 3, Delete: 1, Update: 1, Error: 1");
  }
}

// --- a rerating
// -----------------------------------------------------------------------------------------

/// Two days of calls, whose price hangs on trunk, time profile and jurisdiction.
void store_rerate_world(Session& portal) {
  portal.query(e2e::rate_table("1", "jurisdiction_country_id=1 jurisdiction_prefix='1'") +
               e2e::trunk("1", kAlias, "3", "0") + e2e::trunk("2", kAlias, "4", "0") +
               e2e::rate("rate=0.1234567 time_profile_id=1") +
               e2e::rate("rate=0.7 inter_rate=0.7 intra_rate=0.7") +
               e2e::rate("code='1213' inter_rate=0.0123456") +
               "INSERT INTO time_profile VALUES"
               " (1, 'day', 2, 1, 7, '00:00:00', '23:59:59', '+0000');"
               "INSERT INTO jurisdiction_prefix VALUES (1, '1212', 1, 1), (2, '1213', 2, 1);");
  for (const std::string day : {"01", "02"}) {
    std::vector<e2e::Call> calls(4, e2e::call("egress_id=2"));
    calls[1]["call_duration"] = "77";
    calls[2]["routing_digits"] = "99";
    calls[3]["routing_digits"] = "12135550000";
    for (e2e::Call& call : calls)
      call["time"] = "2026-03-" + day + " 12:00:00+00";
    e2e::store_calls(portal, "202603" + day, calls);
  }
}

void submit_rerate(Session& portal, const std::string& /*folder*/, const std::string& id) {
  e2e::rerate(portal, "id=" + id +
                          " to_time=1772495999 update_us_jurisdiction=1 ingress_trunk='1,1,1,0'"
                          " egress_trunk='2,1,1,1772323200'");
}

/// A file that the row names is whole: it is what the database's first job, which nothing
/// disturbed, has made of the same calls.
void expect_rerated(Session& portal, const std::string& id, bool undisturbed,
                    const std::string& /*status*/) {
  const std::string first = portal.value("SELECT min(id) FROM rerate_cdr_task");
  const std::string list = e2e::listed_files(portal, id);
  for (const char* file : {"1-2026-03-01", "1-2026-03-02", "2-2026-03-01", "2-2026-03-02"}) {
    const bool listed = list.find(id + "-" + file + ".cdr") != std::string::npos;
    EXPECT_TRUE(listed || !undisturbed) << file;
    if (listed) {
      const auto lines = [&](const std::string& job) {
        return support::read_file(e2e::cdr_file(portal, job, std::string(file, 1), file + 2));
      };
      EXPECT_EQ(count_of(lines(id), "\n"), 4);
      EXPECT_TRUE(lines(id) == lines(first)) << lines(id) << lines(first);
    }
  }
}

// --- jobs
// -----------------------------------------------------------------------------------------------

struct JobKind {
  const char* name;
  const char* table;
  const char* dispatcher;  ///< thread that starts its workers
  const char* counted;     ///< its word in the lines of a database's count
  const char* failed;      ///< the job's line in the log, up to its id, when it has failed
  void (*store)(Session& portal);
  void (*submit)(Session& portal, const std::string& folder, const std::string& id);
  void (*expect)(Session& portal, const std::string& id, bool undisturbed,
                 const std::string& status);
};

const JobKind kImport = {"import",       "rate_upload_task", "qvn_import",  "import rate",
                         "rate upload ", store_import_world, submit_import, expect_imported};
const JobKind kRerate = {"rerate",       "rerate_cdr_task",  "qvn_rerate",  "rerate",
                         "Rerate task ", store_rerate_world, submit_rerate, expect_rerated};

/// A daemon and databases that it serves at once, each visit of the poller taking two jobs of each
/// kind.
class ServedDatabases {
 public:
  static constexpr uint32_t kCount = 16;

  explicit ServedDatabases(const std::string& name) {
    for (uint32_t i = 0; i < kCount; i++)
      names_.push_back(name + "_" + std::to_string(i));
    daemon_ = e2e::daemon_for(names_);
    daemon_->write_main_conf(
        "[general]\nlog_level=7\n[rerate]\nmax_rerate_task=100\n"
        "[rate_upload]\nmax_rate_upload_task=300\n");
    support::write_file(daemon_->path() / "deck.csv",
                        "code,rate,effective_date\n44,0.5,2024-03-01\n49,0.6,2024-03-01\n"
                        "7,0.7,2024-03-01\n45,no number,2024-03-01\n");
    for (const std::string& database : names_)
      portals_.push_back(e2e::cluster().connect(database));
  }

  FaultTable& memory() { return memory_; }
  DaemonHarness& daemon() { return *daemon_; }
  Session& portal(size_t number) { return portals_[number]; }

  /// The last job of each database, which nothing disturbed, has counted itself off.
  void expect_no_jobs(const std::string& kind) {
    for (const std::string& name : names_) {
      std::string line = "127.0.0.1-" + name;
      line += " remove " + kind + " task, current task count ";
      EXPECT_TRUE(wait_until([&] {
        const std::string log = daemon_->log();
        const size_t last = log.rfind(line);
        return last != std::string::npos && log[last + line.size()] == '0';
      })) << line;
    }
  }

 private:
  FaultTable memory_;
  std::unique_ptr<DaemonHarness> daemon_;
  std::vector<std::string> names_;
  std::vector<Session> portals_;
};

/// Jobs whose workers fail in each of their allocations.
class JobSweep {
 public:
  explicit JobSweep(const JobKind& kind)
      : kind_(kind), served_(kind.name), memory_(served_.memory()) {
    for (uint32_t i = 0; i < ServedDatabases::kCount; i++)
      kind.store(served_.portal(i));
    served_.daemon().start();
    fail_to_start_a_worker();
    undisturbed_round();
    memory_.remember_rest();
  }

  void run(bool from_then_on) {
    Sweep sweep{kind_.name, from_then_on};
    const uint32_t step = stride();
    for (uint32_t n = 1; round(sweep, n, step); n += step * (kJobs - 1))
      memory_.expect_rest();
    undisturbed_round();
    memory_.expect_rest();
    served_.expect_no_jobs(kind_.counted);
    sweep.print();
  }

 private:
  static constexpr uint32_t kJobs = 2 * ServedDatabases::kCount;

  /// The first worker's thread takes memory; later ones get what ended ones have left.
  void fail_to_start_a_worker() {
    const std::string id = std::to_string(next_id_++);
    MemoryTarget& worker = memory_.watch(0, std::string(kind_.name) + " " + id);
    MemoryTarget& dispatcher = memory_.watch(1, kind_.dispatcher);
    dispatcher.fail_at = 1;
    kind_.submit(served_.portal(0), served_.daemon().path(), id);
    check_job(served_.portal(0), worker, id, false);
    EXPECT_TRUE(served_.daemon().wait_log(" task " + id + " worker thread can't be started, "));
  }

  void undisturbed_round() {
    Sweep none{kind_.name, false};
    (void)round(none, 0, 0);
  }

  /// Runs two jobs in each database, the first of all without a failure, the others with the
  /// failures n, n + step, ... Whether the last of these was reached.
  bool round(Sweep& sweep, uint32_t n, uint32_t step) {
    const uint32_t first_id = next_id_;
    for (uint32_t i = 0; i < kJobs; i++, next_id_++) {
      MemoryTarget& target =
          memory_.watch(i, std::string(kind_.name) + " " + std::to_string(next_id_));
      target.from_then_on = sweep.from_then_on;
      target.fail_at = i == 0 || n == 0 ? 0 : n + (i - 1) * step;
    }
    for (uint32_t i = 0; i < kJobs; i++)
      kind_.submit(served_.portal(i / 2), served_.daemon().path(), std::to_string(first_id + i));
    end_shortage();
    bool reached = false;
    for (uint32_t i = 0; i < kJobs; i++) {
      const uint32_t number = n == 0 || i == 0 ? 0 : n + (i - 1) * step;
      SCOPED_TRACE(std::string(kind_.name) + (sweep.from_then_on ? " all from " : " ") +
                   std::to_string(number));
      check_job(served_.portal(i / 2), memory_->targets[i], std::to_string(first_id + i),
                sweep.from_then_on);
      if (number > 0)
        reached = sweep.count(number, memory_->targets[i]);
    }
    EXPECT_TRUE(served_.daemon().runs());
    return reached && !testing::Test::HasFailure();
  }

  /// Waits until all jobs of a round have ended once; those that wait for the end of the shortage
  /// get it after a while.
  void end_shortage() {
    const auto all = [this](std::atomic<uint32_t> MemoryTarget::*count) {
      return std::all_of(memory_->targets, memory_->targets + kJobs,
                         [count](const MemoryTarget& target) { return target.*count > 0; });
    };
    EXPECT_TRUE(wait_until([&] { return all(&MemoryTarget::begun); }));
    wait_until([&] { return all(&MemoryTarget::ended); }, 2);
    for (MemoryTarget& target : memory_->targets)
      target.fail_at = 0;
  }

  void check_job(Session& portal, MemoryTarget& target, const std::string& id, bool from_then_on) {
    // A row that the worker has left at 0 is offered again.
    const std::string row = " FROM " + std::string(kind_.table) + " WHERE id = " + id;
    std::string status;
    EXPECT_TRUE(wait_until([&] {
      const uint32_t ended = target.ended;
      if (ended == 0 || ended != target.begun)
        return false;
      status = portal.value("SELECT status" + row);
      return status != "0" && target.begun == ended;
    })) << "the job does not end";
    const bool undisturbed = target.failed == 0;
    EXPECT_TRUE(status == "4" || !undisturbed) << status;
    kind_.expect(portal, id, undisturbed, status);
    if (status == "5") {
      EXPECT_NE(portal.value("SELECT progress" + row), "");
    }
    // Of a single failure the log tells, unless it was the line's own.
    if (status != "4" && !from_then_on) {
      EXPECT_TRUE(served_.daemon().wait_log(std::string(kind_.failed) + id + " execution failed, "))
          << status;
    }
  }

  const JobKind& kind_;
  ServedDatabases served_;
  FaultTable& memory_;
  uint32_t next_id_ = 1;
};

void expect_jobs_to_end(const JobKind& kind) {
  JobSweep sweep(kind);
  for (const bool from_then_on : {false, true})
    sweep.run(from_then_on);
}

TEST(Memory, AnImportEndsInOrderWhicheverAllocationFails) {
  expect_jobs_to_end(kImport);
}

TEST(Memory, AReratingEndsInOrderWhicheverAllocationFails) {
  expect_jobs_to_end(kRerate);
}

/// The visits fail in one allocation after the other while jobs wait, which their workers refuse.
TEST(Memory, EveryJobIsTakenAfterAllWhicheverAllocationOfTheVisitsFails) {
  ServedDatabases served("visited");
  FaultTable& memory = served.memory();
  served.daemon().start();
  memory.remember_rest();
  const int jobs = stride() == 1 ? 24 : 3;
  for (const bool from_then_on : {false, true}) {
    MemoryTarget& poller = memory.watch(0, "qvn_poller");
    poller.from_then_on = from_then_on;
    for (uint32_t i = 0; i < ServedDatabases::kCount; i++) {
      for (const JobKind* kind : {&kImport, &kRerate})
        served.portal(i).query("INSERT INTO " + std::string(kind->table) +
                               " (status) SELECT 0 FROM generate_series(1, " +
                               std::to_string(jobs) + ")");
    }
    poller.step = stride();
    Sweep sweep{"visit", from_then_on};
    // Until a whole cycle had enough.
    uint32_t failed = 0;
    uint32_t failed_before = 0;  // when the number has last grown
    EXPECT_TRUE(wait_until(
        [&] {
          if (failed != poller.failed) {
            failed = poller.failed;
            if (sweep.last != poller.fail_at)
              failed_before = failed;
            sweep.last = poller.fail_at;
          }
          // A visit that does not come to connect ends without counting on.
          if (failed > failed_before + 6 * ServedDatabases::kCount) {
            failed_before = failed;
            poller.fail_at += poller.step;
            poller.seen = 0;
          }
          return poller.fail_at > sweep.last + (ServedDatabases::kCount + 1) * poller.step;
        },
        600));
    sweep.failures = failed;
    sweep.numbers = poller.fail_at / poller.step;
    poller.step = poller.fail_at = 0;
    for (uint32_t i = 0; i < ServedDatabases::kCount; i++) {
      for (const auto& [table, end] :
           {std::pair{kImport.table, "progress = 'Unsupported rate date format'"},
            std::pair{kRerate.table, "progress = 'Rerate CDR date invalid'"}}) {
        const std::string waits = "SELECT count(*) FROM " + std::string(table) +
                                  " WHERE NOT (status = 5 AND " + end + ")";
        EXPECT_TRUE(wait_until([&] { return served.portal(i).value(waits) == "0"; }, 300)) << table;
      }
    }
    EXPECT_TRUE(served.daemon().runs());
    memory.expect_rest();
    served.expect_no_jobs(kImport.counted);
    served.expect_no_jobs(kRerate.counted);
    sweep.print();
  }
}

// --- the console and the start
// --------------------------------------------------------------------------

const char* const kLogin = "an_operator_of_the_daemon its_password_takes_memory";

/// A daemon that a console asks.
class ConsoleSweep {
 public:
  ConsoleSweep() {
    const std::vector<std::string> databases = {"console_1", "console_2"};
    for (const std::string& database : databases)
      e2e::drop_database(database);
    daemon_ = e2e::daemon_for(databases);
    daemon_->set_console(
        "cli_login_user=an_operator_of_the_daemon\ncli_login_pwd=its_password_takes_memory\n");
    daemon_->write_main_conf("[general]\nlog_level=7\n");
  }

  FaultTable& memory() { return memory_; }
  DaemonHarness& daemon() { return *daemon_; }

  /// One session with these commands and a logout; all that was answered. The failures are those of
  /// the thread named, from the login on or before.
  std::string session(const std::string& commands, const std::string& thread = "", uint32_t n = 0,
                      bool from_then_on = false, bool after_login = false) {
    MemoryTarget& listener = memory_.watch(0, "qvn_console");
    MemoryTarget& served = memory_.watch(1, "console");
    target_ = thread == "console" ? &served : &listener;
    target_->from_then_on = from_then_on;
    target_->fail_at = after_login ? 0 : n;
    const Console console(daemon_->console_port());
    const bool welcome = console.log_in(kLogin);
    if (after_login) {
      target_->seen = 0;
      target_->fail_at = n;
    }
    console.send(commands + "logout\r\n");
    const std::string answers = console.read(1 << 20);
    target_->fail_at = 0;
    EXPECT_TRUE(wait_until([&] { return served.begun == served.ended; }));
    return (welcome ? "" : "no welcome") + answers;
  }

  /// Lets one allocation of the thread fail after the other; `look` sees the answers.
  template <class Look>
  void sweep(const char* name, const std::string& commands, const std::string& thread,
             bool after_login, Look look) {
    const std::string whole = session(commands);
    memory_.remember_rest();
    for (const bool from_then_on : {false, true}) {
      Sweep figures{name, from_then_on};
      bool reached = true;
      for (uint32_t n = 1; reached && !testing::Test::HasFailure(); n++) {
        SCOPED_TRACE(std::string(name) + (from_then_on ? " all from " : " ") + std::to_string(n));
        const std::string answers = session(commands, thread, n, from_then_on, after_login);
        reached = figures.count(n, *target_);
        look(answers, whole);
        EXPECT_EQ(session(commands), whole);
      }
      figures.print();
    }
    EXPECT_TRUE(daemon_->runs());
    memory_.expect_rest();
  }

 private:
  FaultTable memory_;
  std::unique_ptr<DaemonHarness> daemon_;
  MemoryTarget* target_ = nullptr;
};

constexpr const char* kReloaded = "DB configuration file is reloaded successfully\r\n";

TEST(Memory, AReloadSaysWhetherAllDatabasesAreServedWhicheverAllocationFails) {
  ConsoleSweep console;
  console.daemon().start();
  console.sweep(
      "reload", "reload_conf\r\n", "console", true,
      [&](const std::string& answers, const std::string& whole) {
        EXPECT_THAT(whole, HasSubstr(kReloaded));
        // A database that found no memory is left out, and the log says so.
        if (answers.find(kReloaded) != std::string::npos && answers != whole) {
          EXPECT_TRUE(console.daemon().wait_log("Alloc memory for db info 127.0.0.1-console_"));
        }
        EXPECT_THAT(console.session("reload_conf\r\n"), HasSubstr(kReloaded));
      });
}

TEST(Memory, AConsoleSessionEndsInOrderWhicheverAllocationFails) {
  ConsoleSweep console;
  console.daemon().start();
  for (const char* thread : {"qvn_console", "console"}) {
    console.sweep(thread, "get_conf\r\nhelp\r\nheartbeat\r\nnonsense\r\n", thread, false,
                  [](const std::string& answers, const std::string& whole) {
                    EXPECT_TRUE(answers == whole || answers.size() < whole.size()) << answers;
                  });
  }
}

TEST(Memory, AStartEndsWithALineOrServesWhicheverAllocationFails) {
  if (QVN_COVERAGE)
    GTEST_SKIP() << "What counts the coverage does not survive an end without memory";
  ConsoleSweep world;
  FaultTable& memory = world.memory();
  const std::string output = world.daemon().path() / "start";
  for (const bool from_then_on : {false, true}) {
    Sweep figures{"start", from_then_on};
    bool reached = true;
    for (uint32_t n = 1; reached && !testing::Test::HasFailure(); n++) {
      SCOPED_TRACE("start " + std::to_string(n));
      MemoryTarget& target = memory.watch(2, "main");
      MemoryTarget& listener = memory.watch(0, "qvn_console");
      target.from_then_on = from_then_on;
      target.fail_at = n;
      memory->running = false;
      const int file =
          open(output.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
      const pid_t process = world.daemon().start_with({"-nf"}, file, file, file);
      close(file);
      int status = 0;
      bool ended = false;
      EXPECT_TRUE(wait_until([&] {
        return memory->running || (ended = waitpid(process, &status, WNOHANG) == process);
      }));
      target.fail_at = 0;
      reached = figures.count(n, target);
      if (ended) {
        EXPECT_TRUE(WIFEXITED(status) && reached) << status << support::read_file(output);
        EXPECT_TRUE(from_then_on || !support::read_file(output).empty());
        continue;
      }
      // It is nobody's who does not know the password.
      if (listener.begun > 0) {
        EXPECT_FALSE(Console(world.daemon().console_port()).log_in(""));
        // A database that found no memory is left out, and the log says so.
        EXPECT_TRUE(world.session("get_conf\r\n").find("(2 rows)") != std::string::npos ||
                    support::read_file(output).find("Alloc memory for db info") !=
                        std::string::npos)
            << support::read_file(output);
      }
      EXPECT_EQ(waitpid(process, &status, WNOHANG), 0) << status << support::read_file(output);
      kill(process, SIGKILL);
      waitpid(process, &status, 0);
    }
    figures.print();
  }
}

}  // namespace
