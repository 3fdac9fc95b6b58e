// Rate imports from the portal's row to the rates, the import log and the reimport file.
//
// The scenarios of a table run in one daemon at the same time, each in a database of its own, so
// that all of them are picked up in one poll cycle.
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/qvn_socket.h"
#include "e2e/import_world.h"

namespace {

using e2e::Columns;
using e2e::day;
using support::Row;
using support::Session;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

struct Scenario {
  std::string name;     ///< also the database's
  std::string columns;  ///< of the job: "name=value ..."
  std::string deck;
  std::string outcome;        ///< "status progress"
  std::string rates = "";     ///< of rate table 7 afterwards
  std::string before = "";    ///< SQL run before the job is submitted
  std::string log = "";       ///< rate_import.log
  std::string reimport = "";  ///< rate_reimport.csv
};

std::string result_file(Session& portal, const std::string& name) {
  return support::read_file(portal.value("SELECT result_file_path FROM rate_upload_task") + name);
}

/// Runs all scenarios in one daemon and compares each one's end.
void run_scenarios(const std::vector<Scenario>& scenarios) {
  std::vector<std::string> ids;
  auto daemon = e2e::daemon_for_each(scenarios);
  for (const Scenario& s : scenarios) {
    Session portal = e2e::cluster().connect(s.name);
    if (!s.before.empty())
      portal.query(s.before);
    std::filesystem::create_directory(daemon->path() / s.name);
    ids.push_back(
        e2e::submit(portal, daemon->path() / s.name, s.deck, "7", e2e::columns(s.columns)));
  }
  daemon->start();
  for (size_t i = 0; i < scenarios.size(); i++) {
    const Scenario& s = scenarios[i];
    SCOPED_TRACE(s.name);
    Session portal = e2e::cluster().connect(s.name);
    EXPECT_EQ(e2e::outcome(portal, ids[i]), s.outcome);
    EXPECT_EQ(e2e::rates(portal, "7"), s.rates);
    EXPECT_EQ(result_file(portal, "rate_import.log"), s.log);
    EXPECT_EQ(result_file(portal, "rate_reimport.csv"), s.reimport);
  }
  EXPECT_TRUE(daemon->runs());
}

/// SQL that stores a rate in rate table 7.
std::string stored(const std::string& code, const std::string& rate, const std::string& effective,
                   const std::string& end = "NULL") {
  return "INSERT INTO rate (rate_table_id, code, rate, effective_date, end_date) VALUES (7,'" +
         code + "'," + rate + ",'" + effective + " 00:00:00+00'," + end + ");";
}

TEST(Import, EveryColumnReachesTheTableAndTheJobRow) {
  auto daemon = e2e::daemon_for({"columns"});
  Session portal = e2e::cluster().connect("columns");
  const std::string id = e2e::submit(
      portal, daemon->path(),
      " Rate , CODE,code_name,country,effective_date,end_date,intra_rate,inter_rate,local_rate,"
      "setup_fee,grace_time,min_time,rate_type,seconds,interval,zone,ocn,lata,remark\n"
      "0.1,44, UK ,\"Great Britain\",2024-03-01,2024-04-30,0.2,0.3,0.4,0.5,1,2,3,65566,10,4,x,y,z\n"
      ",49,,,2024-03-02,,,,,,,,,0,0,,,,\n",
      "7", {{"upload_file_path", "'" + daemon->path().string() + "/  '"}});
  daemon->start();
  EXPECT_EQ(e2e::outcome(portal, id), "4 Insert: 2, Delete: 0, Update: 0, Error: 0");

  const auto rows = portal.query(
      "SET timezone = 'UTC'; SELECT code, code_name, country, trim_scale(round(rate, 5)),"
      " trim_scale(round(intra_rate, 5)), trim_scale(round(inter_rate, 5)),"
      " trim_scale(round(local_rate, 5)), trim_scale(setup_fee), effective_date, end_date,"
      " grace_time, min_time, rate_type, seconds, \"interval\", zone, rate_table_id"
      " FROM rate ORDER BY rate_id");
  // The COPY runs from the last line to the first.
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_THAT(rows[0], ElementsAre("49", "", "", "", "", "", "", "0", "2024-03-02 00:00:00+00", "",
                                   "0", "0", "0", "60", "6", "0", "7"));
  EXPECT_THAT(rows[1], ElementsAre("44", "UK", "Great Britain", "0.1", "0.2", "0.3", "0.4", "0.5",
                                   "2024-03-01 00:00:00+00", "2024-04-30 23:59:59+00", "1", "2",
                                   "3", "30", "10", "4", "7"));

  const Row job = portal.query(
      "SELECT start_time <= end_time, end_time - extract(epoch FROM now()) BETWEEN -60 AND 1,"
      " expense_detail, result_file_path FROM rate_upload_task")[0];
  EXPECT_EQ(job[0], "t");
  EXPECT_EQ(job[1], "t");
  EXPECT_THAT(job[2], MatchesRegex(
                          "Download: [0-9]+, Process: [0-9]+, Delete: 0, Update: 0, Copy: [0-9]+"));
  EXPECT_THAT(job[3], MatchesRegex(daemon->path().string() +
                                   "/result_log/[0-9]{8}/127.0.0.1-columns/" + id + "/"));
  EXPECT_TRUE(e2e::wait_open_to_all(job[3]));

  const std::string completed = "127.0.0.1-columns rate upload task 1 have been completed, ";
  for (const std::string& line :
       {std::string("Added 127.0.0.1-columns rate upload task 1, concurrent task count 1\n"),
        std::string("Start 127.0.0.1-columns rate upload task 1 process\n"),
        std::string("127.0.0.1-columns rate upload task 1 load rate data\n"),
        std::string("127.0.0.1-columns rate upload task 1 loading rate done, elapsed "),
        completed + "elapsed ",
        completed + "Insert: 2(2), Delete: 0, Update: 0, Error: 0, Reimport: 0\n",
        std::string("127.0.0.1-columns remove import rate task, current task count 0\n")})
    EXPECT_TRUE(daemon->wait_log(line)) << line << "missing in\n" << daemon->log();
}

TEST(Import, EveryFailingCheckHasItsTextAndLeavesTheRatesAlone) {
  const std::string good = "code,rate,effective_date\n44,0.1,2024-03-01\n";
  const std::string header = "5 Import header invalid", format = "5 Unsupported rate date format";
  const std::string old = stored("44", "9", "2020-01-01"), kept = "44|9|2020-01-01|\n";
  run_scenarios({
      {"f_format", "rate_date_format='YYYYMMDD' upload_file_path=''", good, format},
      {"f_no_format", "rate_date_format=NULL", good, format},
      {"f_no_path", "upload_file_path=NULL rate_table_id=NULL", good, "5 missing souce rate file"},
      {"f_no_file", "upload_format_file=''", good, "5 missing souce rate file"},
      {"f_no_table", "rate_table_id=NULL use_ocn_lata_code=1", good, "5 Not assign rate table id"},
      {"f_ocn", "use_ocn_lata_code=1", good, "5 Unsupported OCN LATA code import"},
      {"f_absent", "upload_format_file='x.csv'", good, "5 Open rate file failed", kept, old},
      {"f_no_code", "", "rate,effective_date\n0.1,2024-03-01\n", header},
      {"f_no_date", "", "code,rate\n44,0.1\n", header},
      {"f_blank", "", "\n\r\n\n", header, kept, old},
      {"f_load_rates", "", good, "5 Load rate data failed", "",
       "ALTER TABLE rate ALTER effective_date TYPE text"},
      {"f_load_deck", "code_deck_flag=1", good, "5 Load code deck failed", kept,
       old + "DROP TABLE code"},
      {"f_copy_header", "", good, "5 Copy rate header failed", kept,
       old + "ALTER TABLE rate DROP COLUMN zone"},
      // The server knows the calendar; the line checks do not.
      {"f_calendar", "", "code,effective_date\n44,2024-02-31\n", "5 Copy rate failed", kept, old},
      {"f_copy", "", good, "5 Copy rate failed", kept,
       old + "ALTER TABLE rate ADD CHECK (rate > 1)"},
  });
}

TEST(Import, ResultFilesThatCannotBeMadeFailTheJob) {
  auto daemon = e2e::daemon_for({"no_log", "no_reimport"});
  daemon->write_main_conf("[rate_upload]\nresult_directory=" + daemon->path().string() + "/res\n");
  const std::string deck = "code,effective_date\n44,2024-03-01\n";
  Session no_log = e2e::cluster().connect("no_log");
  Session no_reimport = e2e::cluster().connect("no_reimport");
  const std::string first = e2e::submit(no_log, daemon->path(), deck, "7");
  const std::string second = e2e::submit(no_reimport, daemon->path(), deck, "7");
  std::string today = day(0);
  std::erase(today, '-');
  const auto results = daemon->path() / "res" / today;
  std::filesystem::create_directories(results / "127.0.0.1-no_log" / first / "rate_import.log");
  std::filesystem::create_directories(results / "127.0.0.1-no_reimport" / second /
                                      "rate_reimport.csv");
  daemon->start();
  EXPECT_EQ(e2e::outcome(no_log, first), "5 Create rate import log file failed");
  EXPECT_EQ(e2e::outcome(no_reimport, second), "5 Create reimport rate file failed");
  EXPECT_TRUE(
      daemon->wait_log("R127.0.0.1-no_log rate upload 1 execution failed, Create rate import "
                       "log file failed\n"));
}

TEST(Import, StoredRatesAreEndedOrDeletedByTheirDates) {
  const std::string deck = "code,rate,effective_date\n44,0.5,2024-03-01\n";
  const std::string added = "44|0.5|2024-03-01|\n";
  const std::string one = "4 Insert: 1, Delete: 0, Update: 0, Error: 0";
  const std::string updated = "4 Insert: 1, Delete: 0, Update: 1, Error: 0";
  const std::string same = stored("44", "9", "2024-03-01"), older = stored("44", "8", "2020-01-01");
  const std::string remove = "reduplicate_rate_action=1", end = "reduplicate_rate_action=2";
  const std::string closed = "44|8|2020-01-01|2024-02-29 23:59:59\n";
  const std::string later = "44|6|2022-01-01|2024-02-29 23:59:59\n";
  run_scenarios({
      {"r_same_0", "rate_date_format='yyyy-mm-dd'", deck, one, "44|9|2024-03-01|\n" + added, same},
      {"r_same_1", remove, deck, "4 Insert: 1, Delete: 1, Update: 0, Error: 0", added, same},
      {"r_same_2", end, deck, updated, "44|9|2024-03-01|now\n" + added, same},
      {"r_older", remove, deck, updated, closed + added, older},
      {"r_older_end", "rate_end_date='2023-12-31T12:00:00Z'", deck, updated,
       "44|8|2020-01-01|2023-12-31 12:00:00\n" + added, older},
      {"r_later", remove, deck, one, added + "44|7|2024-03-02|\n", stored("44", "7", "2024-03-02")},
      // Of two rates in force only the later one counts; the other was superseded before.
      {"r_superseded", "", deck, updated, "44|8|2020-01-01|\n" + later + added,
       older + stored("44", "6", "2022-01-01")},
      // A rate that has ended is not touched, one that will end is ended again; other codes and
      // tables stay.
      {"r_ended", "", deck, updated,
       "4|2|2020-01-01|\n44|8|2020-01-01|2021-01-01 00:00:00\n" + later + added +
           "441|3|2020-01-01|\n",
       stored("44", "8", "2020-01-01", "'2021-01-01 00:00:00+00'") +
           stored("44", "6", "2022-01-01", "now() + interval '1 day'") +
           stored("4", "2", "2020-01-01") + stored("441", "3", "2020-01-01") +
           "INSERT INTO rate (rate_table_id, code, effective_date) VALUES (77, '44', "
           "'2020-01-01')"},
      // An old rate that follows the new one and one that precedes it.
      {"r_around", end, deck, updated, closed + added + "44|5|" + day(30) + "|\n",
       older + stored("44", "5", day(30))},
      {"r_nothing", "", "code,effective_date\n", "4 Insert: 0, Delete: 0, Update: 0, Error: 0",
       "44|8|2020-01-01|\n", older},
      // Both rates have one id: what the deck's first line says of it comes first.
      {"r_twice", "", "code,effective_date\n44,2024-03-02\n45,2024-03-01\n",
       "4 Insert: 2, Delete: 0, Update: 2, Error: 0",
       closed + "44||2024-03-02|\n45|8|2020-01-01|2024-02-29 23:59:59\n45||2024-03-01|\n",
       "ALTER TABLE rate DROP CONSTRAINT rate_pkey;" + older + stored("45", "8", "2020-01-01") +
           "UPDATE rate SET rate_id = 5"},
      // Every statement is sent by itself, and refused.
      {"r_quote", "rate_end_date=E'2023-12-31\\''", deck, updated, "44|8|2020-01-01|\n" + added,
       older},
  });
}

TEST(Import, AStatementThatFailsIsToldOnceAndLeavesTheOthersTheirEffect) {
  auto daemon = e2e::daemon_for({"refusing"});
  Session portal = e2e::cluster().connect("refusing");
  std::string deck = "code,rate,effective_date\n", expected;
  for (const std::string code : {"44", "45", "46", "54", "55", "56"}) {
    const bool repeated = code[0] == '5', stays = code[1] == '5';
    portal.query(stored(code, "8", repeated ? "2024-03-01" : "2020-01-01"));
    deck += code + ",1,2024-03-01\n";
    if (stays || !repeated)
      expected += code + "|8|" + (repeated ? "2024-03-01|" : "2020-01-01|") +
                  (stays ? "\n" : "2024-02-29 23:59:59\n");
    expected += code + "|1|2024-03-01|\n";
  }
  portal.query(
      "CREATE FUNCTION refuse() RETURNS trigger LANGUAGE plpgsql AS $$BEGIN"
      " RAISE EXCEPTION 'stays'; END$$;"
      "CREATE TRIGGER refuse BEFORE UPDATE OR DELETE ON rate FOR EACH ROW"
      " WHEN (old.code LIKE '_5') EXECUTE FUNCTION refuse()");
  const std::string id =
      e2e::submit(portal, daemon->path(), deck, "7", {{"reduplicate_rate_action", "1"}});
  daemon->start();
  EXPECT_EQ(e2e::outcome(portal, id), "4 Insert: 6, Delete: 3, Update: 3, Error: 0");
  EXPECT_EQ(e2e::rates(portal, "7"), expected);
  for (const char* label : {"Rate upload", "Rate Delete"})
    EXPECT_EQ(support::count_of(daemon->log(), std::string(label) + " PQsendQuery failed, status "),
              1);
}

TEST(Import, RefusedLinesAreReportedAndKeptByteForByte) {
  const std::string header =
      "code,rate,effective_date,end_date,zone,interval,seconds,rate_type,min_time,grace_time,"
      "setup_fee,intra_rate,inter_rate,local_rate\n";
  struct Refusal {
    std::string line, message;
  };
  const std::string commas = ",,,,,,,,,,,";
  const std::vector<Refusal> refusals = {
      {"1,0.1,2024-03-01", " not matching rate header"},
      {"1,0.1,2024-03-01" + commas + ",", " not matching rate header"},
      {" ", " not matching rate header"},
      {"1a,0.1,2024-03-01" + commas, " code invalid, 1a"},
      {"2, .5 ,2024-03-01" + commas, " rate invalid, .5"},
      {"2,0.1,2024-03-01,,x" + commas.substr(2), " zone invalid, x"},
      {"2,0.1,2024-03-01-1" + commas, " Effective date format invalid, 2024-03-01-1"},
      {"2,0.1," + day(92) + commas, " Effective date too long, " + day(92)},
      {"2,0.1,2024-03-01," + day(182) + commas.substr(1), " End date too long, " + day(182)},
      {",0.1,2024-03-01" + commas, " missing rate or code or effective date"},
      {"2,0.1," + commas, " missing rate or code or effective date"},
      {"3,0.1,2024-03-01" + commas, " repeating code, 3"},
  };
  // Empty lines count as lines; the accepted ones stand before and between.
  std::string deck = "\n" + header + "3,0.2,2024-03-01" + commas + "\n\n";
  std::string log, reimport;
  int line = 5;
  for (const Refusal& r : refusals) {
    deck += r.line + "\r\n";
    log += "Line " + std::to_string(line) + " :" + r.message + "\n";
    reimport += r.line + "\n";
    line++;
  }
  deck += "4,1.,2024-02-28" + commas + "\n5,1," + day(89) + "," + day(178) + commas.substr(1);
  const std::string errors = std::to_string(refusals.size());
  run_scenarios(
      {{"refused", "", deck, "4 Insert: 3, Delete: 0, Update: 0, Error: " + errors,
        "3|0.2|2024-03-01|\n4|1|2024-02-28|\n5|1|" + day(89) + "|" + day(178) + " 23:59:59\n", "",
        log, reimport}});
}

TEST(Import, NamesComeFromTheCodeDeck) {
  const std::string deck =
      "code,code_name,country,effective_date\n44,a,b,2024-03-01\n4420,c,d,2024-03-01\n"
      "33,e,f,2024-03-01\n";
  const std::string before =
      "INSERT INTO code (code, code_deck_id, country, name) VALUES"
      " ('44', 5, 'United Kingdom', 'UK'), ('44', 6, 'Britain', 'GB'), ('442', 6, 'Britain', "
      "'London');";
  const std::string note = "Line 3 : code not matching system code deck, 4420\n";
  const struct {
    const char* database;
    Columns columns;
    const char* names;
    std::string log;
  } cases[] = {
      {"deck_off", {}, "33 e f,44 a b,4420 c d", ""},
      {"deck_first",
       {{"code_deck_flag", "1"}},
       "33 e f,44 UK United Kingdom,4420 UK United Kingdom",
       note},
      {"deck_given",
       {{"code_deck_flag", "1"}, {"rate_table_code_deck_id", "6"}},
       "33 e f,44 GB Britain,4420 London Britain",
       note},
      {"deck_absent",
       {{"code_deck_flag", "1"}, {"rate_table_code_deck_id", "9"}},
       "33 e f,44 a b,4420 c d",
       ""},
  };
  std::vector<std::string> databases;
  for (const auto& c : cases)
    databases.emplace_back(c.database);
  auto daemon = e2e::daemon_for(databases);
  for (const auto& c : cases) {
    Session portal = e2e::cluster().connect(c.database);
    portal.query(before);
    e2e::submit(portal, daemon->path(), deck, "7", c.columns);
  }
  daemon->start();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.database);
    Session portal = e2e::cluster().connect(c.database);
    EXPECT_EQ(e2e::outcome(portal, "1"), "4 Insert: 3, Delete: 0, Update: 0, Error: 0");
    EXPECT_EQ(portal.value("SELECT string_agg(code || ' ' || code_name || ' ' || country, ','"
                           " ORDER BY code) FROM rate"),
              c.names);
    EXPECT_EQ(result_file(portal, "rate_import.log"), c.log);
  }
}

TEST(Import, AHostileDeckEndsItsJobAndNothingElse) {
  using namespace std::string_literals;
  const std::string header = "code,code_name,effective_date\n";
  const std::vector<std::pair<std::string, std::string>> decks = {
      {"h_nul", header + "44,a\0b,2024-03-01\n45,c,2024-03-01\n"s},
      {"h_bytes", header + "44,\xff\xfe\xc3,2024-03-01\n45,\x01\x1b[2J\x7f,2024-03-01\n"},
      {"h_backslash", header + "44,\\,2024-03-01\n45,\\.,2024-03-01\n46,\\N,2024-03-01\n"},
      {"h_long_line", header + "44," + std::string(1 << 20, 'x') + ",2024-03-01\n"},
      {"h_long_code", header + std::string(900, '5') + ",a,2024-03-01\n"},
      {"h_directory", ""},
      {"h_device", ""},
  };
  std::vector<std::string> databases{"h_next"};
  for (const auto& [name, deck] : decks)
    databases.push_back(name);
  auto daemon = e2e::daemon_for(databases);
  for (const auto& [name, deck] : decks) {
    Session portal = e2e::cluster().connect(name);
    std::filesystem::create_directory(daemon->path() / name);
    Columns columns;
    if (name == "h_directory")
      columns = {{"upload_file_path", "'/'"}, {"upload_format_file", "'tmp'"}};
    if (name == "h_device")
      columns = {{"upload_file_path", "'/dev'"}, {"upload_format_file", "'null'"}};
    e2e::submit(portal, daemon->path() / name, deck, "7", columns);
  }
  daemon->start();
  for (const auto& [name, deck] : decks) {
    Session portal = e2e::cluster().connect(name);
    EXPECT_THAT(e2e::outcome(portal, "1"), MatchesRegex("[45] .+")) << name;
  }
  EXPECT_TRUE(daemon->runs());
  Session portal = e2e::cluster().connect("h_next");
  EXPECT_EQ(
      e2e::outcome(portal, e2e::submit(portal, daemon->path(), header + "44,a,2024-03-01", "7")),
      "4 Insert: 1, Delete: 0, Update: 0, Error: 0");
}

TEST(Import, TheLimitCountsWhatWaitsAndRunsInAllDatabases) {
  const std::vector<std::string> databases = {"limit1", "limit2", "limit3", "limit4"};
  auto daemon = e2e::daemon_for(databases);
  daemon->write_main_conf("[rate_upload]\nmax_rate_upload_task=5\n");
  std::vector<Session> portals, lockers;
  for (const std::string& name : databases) {
    portals.push_back(e2e::cluster().connect(name));
    lockers.push_back(e2e::cluster().connect(name));
    lockers.back().query("BEGIN; LOCK TABLE rate IN ACCESS EXCLUSIVE MODE");
    for (const char* rate_table : {"1", "2"})
      e2e::submit(portals.back(), daemon->path(), "code,effective_date\n44,2024-03-01\n",
                  rate_table);
  }
  daemon->start();
  // Three databases give two jobs each; the sixth is one more than the limit, and the fourth
  // database waits.
  EXPECT_TRUE(daemon->wait_log(
      "Maximum rate upload task in progress, can't start a new rate upload task\n"));
  EXPECT_EQ(support::count_of(daemon->log(), "Added 127.0.0.1-limit"), 6);
  for (Session& locker : lockers)
    locker.query("ROLLBACK");
  for (Session& portal : portals) {
    for (const char* id : {"1", "2"})
      EXPECT_EQ(e2e::outcome(portal, id), "4 Insert: 1, Delete: 0, Update: 0, Error: 0");
  }
}

TEST(Import, ARateTableInWorkIsNotTakenTwice) {
  auto daemon = e2e::daemon_for({"twice"});
  Session portal = e2e::cluster().connect("twice"), locker = e2e::cluster().connect("twice");
  locker.query("BEGIN; LOCK TABLE rate IN ACCESS EXCLUSIVE MODE");
  const std::string deck = "code,rate,effective_date\n44,1,2024-03-01\n";
  const std::string first = e2e::submit(portal, daemon->path(), deck, "7");
  const std::string second = e2e::submit(portal, daemon->path(), deck, "7");
  daemon->start();
  EXPECT_TRUE(
      daemon->wait_log("The rate table 127.0.0.1-twice of 7 have been in rate import process, "
                       "wait other task complete\n"));
  EXPECT_EQ(portal.value("SELECT status FROM rate_upload_task WHERE id = " + second), "0");
  locker.query("ROLLBACK");
  EXPECT_EQ(e2e::outcome(portal, first), "4 Insert: 1, Delete: 0, Update: 0, Error: 0");
  EXPECT_EQ(e2e::outcome(portal, second), "4 Insert: 1, Delete: 0, Update: 0, Error: 0");
}

TEST(Import, DatabasesThatDoNotAnswerAreSkippedAndTheOthersServed) {
  const int silent = support::free_port();
  const qvn_fd never_answers(
      qvn_tcp_socket_and_listen("127.0.0.1", static_cast<uint16_t>(silent), 100));
  auto daemon = e2e::daemon_for({"locked", "served"});
  std::string list;
  for (const char* name : {"silent", "silent2", "silent3", "silent4"})
    list += support::database_section(name, silent, name);
  for (const char* name : {"locked", "served", "no_such_database"})
    list += support::database_section(name, e2e::cluster().port(), name);
  daemon->write_database_list(list);
  Session locker = e2e::cluster().connect("locked"), locked = e2e::cluster().connect("locked");
  const std::string deck = "code,effective_date\n44,2024-03-01\n";
  const std::string waiting = e2e::submit(locked, daemon->path(), deck, "8");
  locker.query("BEGIN; LOCK TABLE rerate_cdr_task IN ACCESS EXCLUSIVE MODE");
  daemon->start();
  Session portal = e2e::cluster().connect("served");
  EXPECT_EQ(e2e::outcome(portal, e2e::submit(portal, daemon->path(), deck, "8")),
            "4 Insert: 1, Delete: 0, Update: 0, Error: 0");
  // All broken ones are tried again in the next cycles.
  EXPECT_TRUE(daemon->wait_log("WEB task DB connect failed, PQstatus:1, ", 10));
  locker.query("ROLLBACK");
  EXPECT_EQ(e2e::outcome(locked, waiting), "4 Insert: 1, Delete: 0, Update: 0, Error: 0");
  EXPECT_THAT(daemon->log(), HasSubstr("database \"no_such_database\" does not exist"));
}

}  // namespace
