#include "faults/job_world.h"

#include <cstdlib>
#include <gtest/gtest.h>

#include "e2e/portal_world.h"
#include "support/page.h"

namespace faults {
namespace {

namespace fs = std::filesystem;

using support::DaemonHarness;
using support::replace_all;
using support::Session;

// Prices tell where a rate comes from: 1 ended by its successor, 2 of the deck's own date, 3 later
// than the deck, 4 ended long ago, 5 of the deck.
const char* const kOldRates =
    "CREATE VIEW ends AS SELECT rate_table_id, code, effective_date, rate, CASE"
    "  WHEN end_date BETWEEN now() - interval '1 hour' AND now() THEN 'now'"
    "  ELSE coalesce(end_date::text, '') END AS ends FROM rate WHERE rate_table_id IN (6, 7);"
    "CREATE TABLE old (LIKE rate);"
    "ALTER TABLE old DROP rate_id;"
    "INSERT INTO old (rate_table_id, code, rate, effective_date, end_date)"
    " SELECT 7, c, price, day, ends FROM generate_series(100000, 99999 + :lines) c, (VALUES"
    "  (0, 1, '2020-01-01'::timestamptz, NULL::timestamptz),"
    "  (1, 2, ':day', NULL), (1, 4, '2019-01-01', '2021-01-01'),"
    "  (2, 3, ':day'::timestamptz + interval '9 days', NULL)) o (part, price, day, ends)"
    " WHERE c % 4 = part;"
    // Another rate table, which the import must not touch.
    "INSERT INTO old (rate_table_id, code, rate, effective_date) VALUES (6, 100000, 1, "
    "'2020-01-01')";

/// How many rates the job has copied, are not as before or as after an undisturbed run, are twice
/// there, are lost that an undisturbed run keeps, and are changed.
const char* const kCounts =
    "WITH before AS (SELECT rate_table_id, code, effective_date, rate, coalesce(end_date::text, '')"
    "                  FROM old),"
    " stray AS (SELECT * FROM ends EXCEPT (TABLE before UNION TABLE after)),"
    " twice AS (SELECT 1 FROM ends GROUP BY rate_table_id, code, effective_date, rate"
    "            HAVING count(*) > 1),"
    " keys AS (SELECT rate_table_id, code, effective_date, rate FROM ends),"
    " lost AS ((SELECT rate_table_id, code, effective_date, rate FROM before INTERSECT"
    "           SELECT rate_table_id, code, effective_date, rate FROM after) EXCEPT TABLE keys),"
    " changed AS (TABLE before EXCEPT TABLE ends),"
    " unfinished AS (TABLE after EXCEPT TABLE ends)"
    "SELECT (SELECT count(*) FROM ends WHERE rate = 5), (SELECT count(*) FROM stray),"
    " (SELECT count(*) FROM twice), (SELECT count(*) FROM lost), (SELECT count(*) FROM changed),"
    " (SELECT count(*) FROM unfinished),"
    " (SELECT count(*) FROM ends) - (SELECT count(*) FROM after)";

class ImportJob : public Job {
 public:
  ImportJob(const std::string& database, int lines, int action, const std::string& effective_date,
            const std::string& end_date)
      : Job(database, "rate_upload_task"),
        lines_(lines),
        action_(action),
        end_date_(end_date),
        deck_("code,rate,effective_date\n44,no number,2024-03-01\n") {
    for (int i = 0; i < lines; i++)
      deck_ += std::to_string(100000 + i) + ",5," + effective_date + "\n";
    std::string old = kOldRates;
    replace_all(old, ":lines", std::to_string(lines));
    replace_all(old, ":day", effective_date + " 00:00:00+00");
    portal().query(old);
  }

  void keep_result() override {
    Session session = portal();
    session.query("CREATE TABLE after AS TABLE ends");
    EXPECT_EQ(session.value("SELECT count(*) FROM ends WHERE rate = 5"), std::to_string(lines_));
  }

  void expect_allowed() const override {
    const support::Row counts = portal().query(kCounts)[0];
    EXPECT_TRUE(counts[0] == "0" || counts[0] == std::to_string(lines_)) << counts[0] << " copied";
    EXPECT_EQ(counts[1] + " " + counts[2] + " " + counts[3], "0 0 0") << "stray, twice, lost";
    // Old rates are touched only when the new ones are in.
    EXPECT_TRUE(counts[0] != "0" || counts[4] == "0") << counts[4] << " changed";
    // And the row does not claim a step that was not done.
    const std::string now = row();
    EXPECT_TRUE(counts[0] == "0" || now[0] == '3' || now[0] == '4') << now;
    EXPECT_TRUE(counts[0] != "0" || (now != "3 Update old rate end date" &&
                                     now != "3 Delete repeating old rate" && now[0] != '4'))
        << now;
  }

  void expect_whole() const override {
    EXPECT_EQ(row()[0], '4') << row();
    const support::Row counts = portal().query(kCounts)[0];
    EXPECT_EQ(counts[1] + " " + counts[5] + " " + counts[6], "0 0 0") << "stray, missing, too many";
  }

  void bring_to_end() const override {
    const std::vector<support::Row> written =
        portal().query(operator_block("-- What an import has written", {{"job", id_}}));
    if (row() == "3 Update old rate end date" || row() == "3 Delete repeating old rate") {
      EXPECT_EQ(written.at(0).at(4), std::to_string(lines_));
    }
    portal().query(operator_block("-- Finish an import", {{"job", id_}}));
  }

 private:
  std::string insert_row(Session& portal, const DaemonHarness& daemon) override {
    portal.query(
        "DELETE FROM rate WHERE rate_table_id IN (6, 7); INSERT INTO rate (rate_table_id, code, "
        "rate, effective_date,"
        " end_date) SELECT rate_table_id, code, rate, effective_date, end_date FROM old");
    const fs::path folder = daemon.path() / database();
    fs::create_directories(folder);
    return e2e::submit(portal, folder, deck_, "7",
                       {{"reduplicate_rate_action", std::to_string(action_)},
                        {"rate_end_date", "'" + end_date_ + "'"}});
  }
  const char* kind() const override { return "rate upload"; }

  int lines_;
  int action_;
  std::string end_date_;
  std::string deck_;
};

class RerateJob : public Job {
 public:
  RerateJob(const std::string& database, int calls) : Job(database, "rerate_cdr_task") {
    Session session = portal();
    session.query(e2e::rate_table("1") + e2e::trunk("1", "in") + e2e::trunk("2", "out") +
                  e2e::rate("rate_id=1000000") +
                  "INSERT INTO rate (rate_table_id, code, rate, effective_date)"
                  " SELECT 1, c, 1, '2020-01-01' FROM generate_series(100000, 99999 + " +
                  std::to_string(calls) + ") c");
    for (const std::string day : {"01", "02"}) {
      e2e::Call call = e2e::call("egress_id=2");
      call["time"] = "2026-03-" + day + " 12:00:00+00";
      const std::string table = "client_cdr202603" + day;
      e2e::store_calls(session, "202603" + day, {call});
      std::string more =
          "INSERT INTO :table SELECT c.* FROM :table c, generate_series(2, :calls);"
          "UPDATE :table SET call_duration = 1 + (ctid::text::point)[1]::int";
      replace_all(more, ":table", table);
      replace_all(more, ":calls", std::to_string(calls));
      session.query(more);
    }
  }

  void keep_result() override {
    for (const auto& [trunk, date] : kFiles) {
      files_.push_back(support::read_file(file(trunk, date)));
      EXPECT_FALSE(files_.back().empty());
    }
  }

  void expect_allowed() const override {
    const bool finished = row()[0] == '4';
    size_t there = 0;
    for (size_t i = 0; i < files_.size(); i++) {
      const auto& [trunk, date] = kFiles[i];
      const std::string found = support::read_file(file(trunk, date));
      EXPECT_TRUE(found.empty() || found == files_[i])
          << trunk << " " << date << " has " << found.size() << " of " << files_[i].size();
      there += found.empty() ? 0 : 1;
    }
    const fs::path folder = file("1", "2026-03-01").parent_path();
    const auto files = fs::exists(folder) ? std::distance(fs::directory_iterator(folder), {}) : 0;
    EXPECT_EQ(static_cast<size_t>(files), there) << "something else is left in " << folder;
    // A file counts when its job's row names it, and no earlier.
    Session session = portal();
    EXPECT_EQ(e2e::listed_files(session, id_).empty(), !finished);
  }

  void expect_whole() const override {
    EXPECT_EQ(row()[0], '4') << row();
    std::string listed;
    for (size_t i = 0; i < files_.size(); i++) {
      const auto& [trunk, date] = kFiles[i];
      EXPECT_TRUE(support::read_file(file(trunk, date)) == files_[i]) << trunk << " " << date;
      listed += (i == 0 ? "" : ",") + id_ + "-" + trunk + "-" + date + ".cdr";
    }
    Session session = portal();
    EXPECT_EQ(e2e::listed_files(session, id_), listed);
  }

  void forget_result() const override { fs::remove_all(file("1", "2026-03-01").parent_path()); }

  void bring_to_end() const override {
    const std::string settings = "CDR_DIRECTORY='" + (folder_ / "rerate_cdr").string() +
                                 "' DATABASE=127.0.0.1-" + database() + " JOB=" + id_ + "\n";
    EXPECT_EQ(system((settings + operator_block("# Remove the files")).c_str()), 0);
    portal().query(operator_block("-- Offer a rerating again", {{"job", id_}}));
  }

 private:
  static constexpr std::pair<const char*, const char*> kFiles[] = {
      {"1", "2026-03-01"}, {"2", "2026-03-01"}, {"1", "2026-03-02"}, {"2", "2026-03-02"}};

  std::string insert_row(Session& portal, const DaemonHarness& /*daemon*/) override {
    return e2e::rerate(portal, "to_time=1772495999 ingress_trunk='1,1,1,0' egress_trunk='2,1,1,0'");
  }
  const char* kind() const override { return "rerate"; }

  /// Where a file of the job lies, whether or not the row has it.
  fs::path file(const std::string& trunk, const std::string& date) const {
    const fs::path folder = e2e::output_folder(folder_ / "rerate_cdr", database(), id_);
    return folder / (id_ + "-" + trunk + "-" + date + ".cdr");
  }

  std::vector<std::string> files_;  ///< of the undisturbed run
};

}  // namespace

void Job::submit(const DaemonHarness& daemon) {
  Session session = portal();
  folder_ = daemon.path();
  id_ = insert_row(session, daemon);
}

std::string Job::row() const {
  return portal().value("SELECT status || ' ' || coalesce(progress, '') FROM " +
                        std::string(table_) + " WHERE id = " + id_);
}

bool Job::is_unattended() const {
  const auto has_begun = [&] {
    const char status = row()[0];
    return status >= '1' && status <= '3';
  };
  // A daemon that works on it writes the end through the connection that it has meanwhile.
  return has_begun() && portal().query(operator_block("-- Jobs without a worker")).size() == 1 &&
         has_begun();
}

void Job::recover() const {
  const std::string now = row();
  const bool stuck = now[0] >= '1' && now[0] <= '3';
  // Jobs of earlier faults have all come to their end.
  Session session = portal();
  EXPECT_EQ(session.query(operator_block("-- Jobs that have begun")).size(), stuck ? 1U : 0U);
  session.query(operator_block("-- What the daemon does"));
  if (stuck)
    bring_to_end();
}

std::string Job::begin_line() const {
  return "Start 127.0.0.1-" + database_ + " " + kind() + " task " + id_ + " process\n";
}

std::string Job::removed_line() const {
  const bool rating = std::string(kind()) == "rerate";
  return "127.0.0.1-" + database_ + " remove " + (rating ? "rerate" : "import rate") +
         " task, current task count 0\n";
}

std::unique_ptr<Job> import_job(const std::string& database, int lines, int action,
                                const std::string& effective_date, const std::string& end_date) {
  return std::make_unique<ImportJob>(database, lines, action, effective_date, end_date);
}

std::unique_ptr<Job> rerate_job(const std::string& database, int calls) {
  return std::make_unique<RerateJob>(database, calls);
}

std::string operator_block(const std::string& comment,
                           const std::map<std::string, std::string>& variables) {
  std::string block;
  for (const support::Block& one : support::blocks(support::read_file(QVN_OPERATION_DOC))) {
    if (one.text.starts_with(comment))
      block = one.text;
  }
  EXPECT_NE(block, "") << "no block begins with " << comment;
  for (const auto& [name, value] : variables) {
    replace_all(block, ":'" + name + "'", "'" + value + "'");
    replace_all(block, ":" + name, value);
  }
  return block;
}

void end_leftovers(const Job& job, const std::string& started) {
  Session session = job.portal();
  const std::string sql = operator_block("-- End the connections", {{"started", started}});
  EXPECT_TRUE(support::wait_until([&] { return session.query(sql).empty(); }));
}

}  // namespace faults
