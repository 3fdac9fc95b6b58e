// Memory runs out in a job's worker or in the visits that find the jobs: every allocation fails,
// once or with all that follow. The short form takes one number of many; scripts/endure takes each.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "e2e/portal_world.h"
#include "faults/memory_table.h"

namespace {

using faults::FaultTable;
using faults::stride;
using faults::Sweep;
using support::count_of;
using support::DaemonHarness;
using support::Session;
using support::wait_until;
using testing::AnyOf;
using testing::HasSubstr;

constexpr const char* kAlias = "a_trunk_with_a_name_that_takes_memory";

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

}  // namespace
