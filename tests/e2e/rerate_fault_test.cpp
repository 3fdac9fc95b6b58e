// Reratings while something breaks: loads, files and disks that fail, servers and connections that
// die, the daemon's end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "e2e/rerate_world.h"

namespace {

namespace fs = std::filesystem;

using e2e::Call;
using e2e::Side;
using support::Session;

const char* const kMinute = "0.100000|0.100000|60|1.000000|5|44|UK|Britain|3|1772323200";

/// Stores trunk, rates and a call on each of the first three days of March.
void store_world(Session& portal) {
  portal.query(e2e::rate_table("1") + e2e::trunk("1", "t") + e2e::rate("rate_id=5"));
  for (const std::string day : {"01", "02", "03"}) {
    Call call = e2e::call();
    call["time"] = "2026-03-" + day + " 12:00:00+00";
    e2e::store_calls(portal, "202603" + day, {call});
  }
}

std::string submit(Session& portal, const std::string& columns = "") {
  return e2e::rerate(portal, "ingress_trunk='1,1,1,0' egress_trunk='1,1,1,0' " + columns);
}

/// A job of the day that nothing is wrong with shows in each database that the daemon still works.
template <typename Scenarios>
void expect_next_jobs_work(const Scenarios& scenarios) {
  std::vector<Session> portals;
  std::vector<std::string> ids;
  for (const auto& s : scenarios) {
    portals.push_back(e2e::cluster().connect(s.name));
    ids.push_back(submit(portals.back()));
  }
  const Call call = e2e::call();
  for (size_t i = 0; i < ids.size(); i++) {
    EXPECT_EQ(e2e::rerated(portals[i], ids[i]), "0 4 ");
    e2e::expect_file(e2e::cdr_file(portals[i], ids[i], "1"),
                     e2e::lines({e2e::priced(call, Side::ingress, kMinute),
                                 e2e::priced(call, Side::egress, kMinute)}));
  }
}

/// A fault that ends a day's work, the rest of the job going on.
struct Fault {
  std::string name;                       ///< also the database's
  std::string break_it;                   ///< SQL
  void (*spoil)(const fs::path& folder);  ///< what is wrong with the job's folder; may be null
  std::string listed;                     ///< the job's file list
  std::string log;                        ///< end of a line
  std::string repair = "";                ///< SQL
  std::string job = "";
  std::string outcome = "0 4 ";
};

/// A table that breaks while it is read, after 20,000 rows.
std::string breaking(const std::string& table, const std::string& column) {
  return "ALTER TABLE " + table + " RENAME TO whole; CREATE VIEW " + table +
         " AS SELECT * FROM whole WHERE 1 / (" + column + " - 13) IS NOT NULL;";
}

std::string day_files(const std::vector<std::string>& days) {
  std::string files;
  for (const std::string& day : days) {
    for (int side = 0; side < 2; side++)
      files += (files.empty() ? "" : ",") + ("1-1-2026-03-" + day + ".cdr");
  }
  return files;
}

/// Trunks 10 to 69 on three days have more files than the row's list takes: the 102nd is written
/// and ends its day, and so does the first one of the last day.
std::string full_list() {
  std::string files;
  for (const char* day : {"01", "02"}) {
    for (int trunk = 69; trunk >= (day[1] == '1' ? 10 : 29); trunk--)
      files += "1-" + std::to_string(trunk) + "-2026-03-" + day + ".cdr,";
  }
  files.pop_back();
  return files;
}

std::string sixty_trunks() {
  std::string text;
  for (int trunk = 10; trunk < 70; trunk++)
    text += std::to_string(trunk) + ",1,1,0;";
  return "'" + text + "'";
}

std::vector<Fault> faults() {
  const std::string calls =
      "INSERT INTO client_cdr20260302 (time, session_id, start_time_of_date,"
      " routing_digits, call_duration, ingress_id, egress_id)"
      " SELECT '2026-03-02 12:00:00+00', 's', 1772366400000000, '4420', d, 1,"
      " 1 FROM ";
  const std::string many = calls + "generate_series(1000, 20999) d;";
  const std::string broken = calls + "(SELECT 13 d) last;";
  const std::string rates =
      "INSERT INTO rate (rate_id, rate_table_id, code, rate, seconds, effective_date)"
      " SELECT d, 1, d, 0.1, 60, '2026-01-01' FROM generate_series(100000, 119999) d;"
      "INSERT INTO rate (rate_id, rate_table_id, code, seconds) VALUES (13, 1, '44', 13);";
  const std::string whole_again =
      "DROP VIEW rate; ALTER TABLE whole RENAME TO rate;"
      "DELETE FROM rate WHERE seconds = 13";
  return {
      {"no_table", "DROP TABLE client_cdr20260302", nullptr, day_files({"01", "03"}),
       "Rerate task 1 load t 2026-03-02 cdr failed\n"},
      {"no_first_table", "DROP TABLE client_cdr20260301", nullptr, day_files({"02", "03"}),
       "Rerate task 1 load t 2026-03-01 cdr failed\n",
       "ALTER TABLE client_cdr20260303 RENAME TO client_cdr20260301;"
       "UPDATE client_cdr20260301 SET time = '2026-03-01 12:01:00+00'"},
      // Nobody rates half a day's calls, or calls by half a rate table.
      {"half_calls", many + broken + breaking("client_cdr20260302", "call_duration"), nullptr,
       day_files({"01", "03"}), "ERROR:  division by zero\n"},
      {"half_rates", rates + breaking("rate", "seconds"), nullptr, "", "ERROR:  division by zero\n",
       whole_again},
      {"half_fixed", rates + breaking("rate", "seconds"), nullptr, "",
       "Rerate task 1 execution failed, error_code 3, Get ingress t rate failed\n", whole_again,
       "ingress_trunk='1,1,1,1772323200'", "3 5 Get ingress t rate failed"},
      {"no_folder", "",
       [](const fs::path& folder) {
         fs::create_directories(folder.parent_path());
         support::write_file(folder, "a file where the folder should be");
       },
       "", "no_folder/1/1-1-2026-03-03.cdr failed, error:20(Not a directory)\n"},
      {"no_file", "",
       [](const fs::path& folder) { fs::create_directories(folder / "1-1-2026-03-02.cdr"); },
       day_files({"01", "03"}), "no_file/1/1-1-2026-03-02.cdr failed, error:21(Is a directory)\n"},
      // What a local user may have put where the file will be.
      {"link", many,
       [](const fs::path& folder) {
         fs::create_directories(folder);
         fs::create_symlink("/dev/full", folder / "1-1-2026-03-02.cdr");
       },
       day_files({"01", "03"}),
       "link/1/1-1-2026-03-02.cdr failed, error:40(Too many levels of symbolic links)\n"},
      {"second_name", "",
       [](const fs::path& folder) {
         fs::create_directories(folder);
         support::write_file(folder / "another file", "its content");
         fs::create_hard_link(folder / "another file", folder / "1-1-2026-03-02.cdr");
       },
       day_files({"01", "03"}),
       "second_name/1/1-1-2026-03-02.cdr failed, error:31(Too many links)\n"},
      {"pipe", "",
       [](const fs::path& folder) {
         fs::create_directories(folder);
         ASSERT_EQ(mkfifo((folder / "1-1-2026-03-02.cdr").c_str(), 0600), 0);
       },
       day_files({"01", "03"}),
       "pipe/1/1-1-2026-03-02.cdr failed, error:1(Operation not permitted)\n"},
      {"full_list", "", nullptr, full_list(), "Rerate task 1 number of CDR file exceeds limits\n",
       "", "ingress_trunk='' egress_trunk=" + sixty_trunks()},
  };
}

TEST(RerateFault, AFailedLoadOrFileEndsItsDayAndNothingElse) {
  const std::vector<Fault> table = faults();
  auto daemon = e2e::daemon_for_each(table);
  for (const Fault& f : table) {
    Session portal = e2e::cluster().connect(f.name);
    store_world(portal);
    if (!f.break_it.empty())
      portal.query(f.break_it);
    if (f.spoil != nullptr)
      f.spoil(e2e::output_folder(daemon->path() / "rerate_cdr", f.name));
    submit(portal, std::string("to_time=1772582399 ") + f.job);
  }
  daemon->start();
  for (const Fault& f : table) {
    SCOPED_TRACE(f.name);
    Session portal = e2e::cluster().connect(f.name);
    EXPECT_EQ(e2e::rerated(portal, "1"), f.outcome);
    EXPECT_EQ(e2e::listed_files(portal, "1"), f.listed);
    EXPECT_TRUE(daemon->wait_log(f.log)) << daemon->log();
  }
  for (const Fault& f : table) {
    SCOPED_TRACE(f.name);
    Session portal = e2e::cluster().connect(f.name);
    if (!f.repair.empty())
      portal.query(f.repair);
  }
  expect_next_jobs_work(table);
  Session portal = e2e::cluster().connect("full_list");
  EXPECT_EQ(e2e::listed_files(portal, "1").size(), 2019u);
  const auto written = [&](const char* trunk, const char* date) {
    return fs::exists(e2e::cdr_file(portal, "1", trunk, date));
  };
  EXPECT_TRUE(written("28", "2026-03-02"));
  EXPECT_FALSE(written("27", "2026-03-02"));
  EXPECT_TRUE(written("69", "2026-03-03"));
  EXPECT_FALSE(written("68", "2026-03-03"));
}

}  // namespace
