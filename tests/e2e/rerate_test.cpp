// Reratings from the portal's row to the CDR files and the row's end.
//
// The scenarios of a table run in one daemon at the same time, each in a database of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

#include "e2e/rerate_world.h"

namespace {

using e2e::Call;
using e2e::kMarch1;
using e2e::kMarch2;
using e2e::kMarch3;
using e2e::Side;
using support::Row;
using support::Session;

/// What a minute costs by rate 5 of code 44, up to the effective date.
const char* const kMinute = "0.100000|0.100000|60|1.000000|5|44|UK|Britain|3|";

TEST(Rerate, EveryColumnReachesTheFileAndTheJobRow) {
  auto daemon = e2e::daemon_for({"whole"});
  Session portal = e2e::cluster().connect("whole");
  portal.query(e2e::rate_table("1") + e2e::trunk("1", "first") + e2e::rate("rate_id=5"));
  Call full = e2e::call("ingress_dnis_type=0 session_id=\xc3\xa9");
  for (const Row& row : portal.query("SELECT column_name, data_type, ordinal_position"
                                     " FROM information_schema.columns"
                                     " WHERE table_name = 'client_cdr'"))
    full.insert({row[0], row[1] == "text"      ? "t" + row[2]
                         : row[1] == "numeric" ? row[2] + ".5000000000"
                                               : row[2]});
  e2e::store_calls(portal, "20260301", {full});
  e2e::rerate(portal, "ingress_trunk='1,1,1,0' include_q850=1");
  e2e::rerate(portal, "egress_trunk='1,1,1,0'");
  // Files are appended to.
  const auto folder = e2e::output_folder(daemon->path() / "rerate_cdr", "whole");
  std::filesystem::create_directories(folder);
  support::write_file(folder / "1-1-2026-03-01.cdr", "kept\n");
  daemon->start();
  EXPECT_EQ(e2e::rerated(portal, "1"), "0 4 ");
  EXPECT_EQ(e2e::rerated(portal, "2"), "0 4 ");
  const std::string price = std::string(kMinute) + kMarch1;
  e2e::expect_file(e2e::cdr_file(portal, "1", "1"),
                   "kept\n" + e2e::line(e2e::priced(full, Side::ingress, price), true));
  e2e::expect_file(e2e::cdr_file(portal, "2", "1"),
                   e2e::line(e2e::priced(full, Side::egress, price)));

  const Row job = portal.query(
      "SELECT cdr_file, cdr_file_path, load_cdr_elapsed_sec BETWEEN 0 AND 60,"
      " load_rate_elapsed_sec BETWEEN 0 AND 60, rerate_elapsed_sec, start_time <= end_time AND"
      " end_time - extract(epoch FROM now()) BETWEEN -60 AND 1 FROM rerate_cdr_task"
      " WHERE id = 1")[0];
  EXPECT_THAT(
      job, testing::ElementsAre("1-1-2026-03-01.cdr", folder.string() + "/", "t", "t", "0", "t"));
  EXPECT_TRUE(e2e::wait_open_to_all(folder));
  for (const char* line :
       {"Added 127.0.0.1-whole rerate task 1, concurrent task count 1\n",
        "Added 127.0.0.1-whole rerate task 2, concurrent task count 2\n",
        "Start 127.0.0.1-whole rerate task 1 process\n", "Rerate task 1 not time profile data\n",
        "Rerate task 1 loading ingress rate same as CDR time 2026-03-01\n",
        "rate table id 1 effective date as cdr date 2026-03-01\n",
        "Rerate task 1 loading ingress first 2026-03-01 CDRs, time <= '2026-03-01 23:59:59+00'\n",
        "Rerate task 1 loading ingress first 2026-03-01 cdr done, elapsed ",
        "Rerate task 1 rerate ingress first 2026-03-01 CDRs\n",
        "Rerate task 1 rerate ingress first 2026-03-01 CDRs done\n",
        "Rerate task 1 have been completed, cdr count 1, elapsed ",
        "127.0.0.1-whole remove rerate task, current task count 0\n"})
    EXPECT_TRUE(daemon->wait_log(line)) << line << "missing in\n" << daemon->log();
}

/// When the calls of the day tables ended; their sessions. The stray one is not of its table's day.
struct RangeCall {
  const char *table, *time, *session;
};

const RangeCall kRangeCalls[] = {
    {"20260228", "2026-02-28 22:59:59+00", "a0"}, {"20260228", "2026-02-28 23:00:00+00", "a1"},
    {"20260228", "2026-02-28 23:59:59+00", "a2"}, {"20260301", "2026-02-28 10:00:00+00", "stray"},
    {"20260301", "2026-03-01 00:00:00+00", "b0"}, {"20260301", "2026-03-01 12:00:00+00", "b1"},
    {"20260301", "2026-03-01 12:00:01+00", "b2"}, {"20260301", "2026-03-01 23:59:59+00", "b3"},
    {"20260302", "2026-03-02 00:00:00+00", "c0"}, {"20260302", "2026-03-02 00:00:01+00", "c1"},
    {"20260302", "2026-03-02 12:00:00+00", "c2"}, {"20260303", "2026-03-03 06:00:00+00", "d0"},
    {"20260303", "2026-03-03 12:00:00+00", "d1"}, {"20260303", "2026-03-03 12:00:01+00", "d2"},
};

struct Range {
  const char* name;  ///< also the database's
  const char* job;
  std::map<std::string, std::string> days;  ///< sessions of the calls of each day that is rated
  const char* ingress = "1,1,1,0";
  const char* egress = "2,1,1,0";
};

std::vector<Range> ranges() {
  const std::string d28 = "2026-02-28", d1 = "2026-03-01", d2 = "2026-03-02", d3 = "2026-03-03";
  return {
      {"whole_day", "from_time=1772323200 to_time=1772409599", {{d1, "stray b0 b1 b2 b3"}}},
      {"bounds_count", "from_time=1772366400 to_time=1772366401", {{d1, "b1 b2"}}},
      {"from_second", "from_time=1772323201 to_time=1772366400", {{d1, "b1"}}},
      {"three_days",
       "from_time=1772366401 to_time=1772539200",
       {{d1, "b2 b3"}, {d2, "c0 c1 c2"}, {d3, "d0 d1"}}},
      {"to_midnight", "from_time=1772366401 to_time=1772409600", {{d1, "b2 b3"}, {d2, "c0"}}},
      {"zone_east",
       "from_time=1772323200 to_time=1772366400 timezone=1",
       {{d28, "a1 a2"}, {d1, "stray b0"}}},
      {"zone_west", "from_time=1772366400 to_time=1772370000 timezone=-12", {{d2, "c0 c1"}}},
      {"no_calls", "from_time=1772542800 to_time=1772546400", {{d3, ""}}},
      // A flag is a number of 8 bits; whatever is not 1 switches the trunk off.
      {"flags",
       "from_time=1772366400 to_time=1772366401",
       {{d1, "b1 b2"}},
       "9,0,,;1,257,1,0",
       "1,0,,;1,2,8,0;1,t,,;2,1x,1,0;"},
      {"all_off", "", {}, "1,0,,", "2,0,,"},
  };
}

/// Compares the files of a range and its list of them.
void check(Session& portal, const Range& range) {
  const std::map<std::string, std::string> midnights{{"2026-02-28", "1772236800"},
                                                     {"2026-03-01", kMarch1},
                                                     {"2026-03-02", kMarch2},
                                                     {"2026-03-03", kMarch3}};
  std::string files;
  for (const auto& [date, sessions] : range.days) {
    const std::string price = kMinute + midnights.at(date);
    std::string ingress, egress, session;
    for (std::istringstream in(sessions); in >> session;) {
      const Call call = e2e::call("egress_id=2 session_id=" + session);
      ingress += e2e::line(e2e::priced(call, Side::ingress, price));
      egress += e2e::line(e2e::priced(call, Side::egress, price));
    }
    // An egress trunk without calls gets an empty file, an ingress trunk none.
    if (!ingress.empty()) {
      files += "1-1-" + date + ".cdr,";
      e2e::expect_file(e2e::cdr_file(portal, "1", "1", date), ingress);
    }
    files += "1-2-" + date + ".cdr,";
    e2e::expect_file(e2e::cdr_file(portal, "1", "2", date), egress);
  }
  EXPECT_EQ(e2e::listed_files(portal, "1") + (files.empty() ? "" : ","), files);
  const std::string folder = portal.value("SELECT cdr_file_path FROM rerate_cdr_task");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}),
            support::count_of(files, ","));
}

TEST(Rerate, TheRangeChoosesDaysAndCalls) {
  const std::vector<Range> table = ranges();
  auto daemon = e2e::daemon_for_each(table);
  for (const Range& r : table) {
    Session portal = e2e::cluster().connect(r.name);
    portal.query(e2e::rate_table("1") + e2e::trunk("1", "in") + e2e::trunk("2", "out") +
                 e2e::rate("rate_id=5"));
    for (const RangeCall& c : kRangeCalls) {
      Call call = e2e::call(std::string("egress_id=2 session_id=") + c.session);
      call["time"] = c.time;
      e2e::store_calls(portal, c.table, {call});
    }
    e2e::store_calls(portal, "20260301", {e2e::call("egress_id=2 call_duration=0")});
    e2e::rerate(portal, std::string(r.job) + " ingress_trunk='" + r.ingress + "' egress_trunk='" +
                            r.egress + "'");
  }
  daemon->start();
  for (const Range& r : table) {
    SCOPED_TRACE(r.name);
    Session portal = e2e::cluster().connect(r.name);
    EXPECT_EQ(e2e::rerated(portal, "1"), "0 4 ");
    check(portal, r);
  }
}

struct Check {
  std::string name;  ///< also the database's
  std::string job;
  std::string outcome;     ///< "err_code status progress"
  std::string log = "";    ///< a line of it
  std::string setup = "";  ///< SQL
  std::string files = "";  ///< the job's file list
};

/// Trunk texts that are refused.
const char* const kBadTrunks[] = {"1,1,1", "1,1,,0", ",1,1,0", "1,,1,0", "1,1,1,", "1,1,1,0;;"};

std::vector<Check> checks() {
  const std::string in = "ingress_trunk='1,1,1,0'", out = "egress_trunk='1,1,1,0'";
  const std::string fixed_in = "ingress_trunk='1,1,1,1772409600'";
  const std::string fixed_out = "egress_trunk='1,1,1,1772409600'";
  const std::string lrn = out + " update_lrn=1 ", us = in + " update_us_jurisdiction=1";
  const std::string table = e2e::rate_table("1"), ready = table + e2e::rate("");
  const std::string bad_date = "1 5 Rerate CDR date invalid", no_lrn = "1 5 LRN is not setting";
  const std::string no_trunk = "1 5 Rerate CDR not select trunk";
  const std::string no_prefix = "3 5 Not jurisdiction data", file = "1-1-2026-03-01.cdr";
  std::vector<Check> list = {
      {"date_same", "to_time=1772323200 ingress_trunk=','", bad_date, "1 CDR date invalid\n"},
      {"date_back", "from_time=1772409600 to_time=1772323200", bad_date},
      {"date_null", "from_time=NULL to_time=NULL", bad_date},
      {"bad_both", "ingress_trunk=',' egress_trunk=','", "1 5 Rerate CDR ingress trunk invalid",
       "rerate task 1 ingress trunk info invalid, stop it\n"},
      {"no_trunk", "", no_trunk, "Rerate task 1 not select trunk\n"},
      {"no_text", "ingress_trunk='' egress_trunk='' update_lrn=1", no_trunk},
      {"lrn_nothing", lrn, no_lrn, "Rerate task 1 LRN is not setting\n"},
      {"lrn_low", lrn + "lrn_server_ip='' lrn_server_port=66559", no_lrn},
      {"lrn_port", lrn + "lrn_server_port=66560", "0 4 ", "", ready, file},
      {"lrn_ip", lrn + "lrn_server_ip='10.0.0.1'", "0 4 ", "", ready, file},
      {"no_prefixes", us, no_prefix, "Rerate task 1 not jurisdiction data\n", ready},
      {"prefixes_fail", us, no_prefix, "", ready + "DROP TABLE jurisdiction_prefix"},
      {"table_in", "ingress_trunk='2,0,,;1,1,9,0'", "3 5 Get ingress rate table 9 failed"},
      {"table_out", in + " egress_trunk='1,1,9,0'", "3 5 Get egress rate table 9 failed", "",
       ready},
      {"fixed_in", fixed_in, "3 5 Get ingress  rate failed", "", table},
      {"fixed_out", fixed_out, "3 5 Get egress london rate failed", "",
       table + e2e::trunk("1", "london")},
      // The only rate ended at the very moment that is asked for.
      {"fixed_ended", fixed_out, "3 5 Get egress  rate failed", "",
       table + e2e::rate("end_date='2026-03-02T00:00:00Z'")},
      // Rates of the call's day that are missing end the day, not the job.
      {"day_in", in + " " + out, "0 4 ", "", table},
      {"day_out", out, "0 4 ", "", table + e2e::rate("effective_date='2026-03-03T00:00:00Z'")},
      {"rates_fail", out, "0 4 ", "Rerate Rate PQexec failed, PQstatus:0, ",
       table + "DROP TABLE rate"},
  };
  for (const std::string text : kBadTrunks) {
    const std::string side = list.size() % 2 == 0 ? "ingress" : "egress";
    // NOLINTNEXTLINE(performance-inefficient-string-concatenation)
    list.push_back({"bad" + std::to_string(list.size()), side + "_trunk='" + text + "'",
                    "1 5 Rerate CDR " + side + " trunk invalid"});
  }
  return list;
}

TEST(Rerate, EveryFailingCheckHasItsCodeAndText) {
  const std::vector<Check> table = checks();
  auto daemon = e2e::daemon_for_each(table);
  for (const Check& c : table) {
    Session portal = e2e::cluster().connect(c.name);
    e2e::store_calls(portal, "20260301", {});
    if (!c.setup.empty())
      portal.query(c.setup);
    e2e::rerate(portal, c.job);
  }
  daemon->start();
  for (const Check& c : table) {
    SCOPED_TRACE(c.name + " " + c.job);
    Session portal = e2e::cluster().connect(c.name);
    EXPECT_EQ(e2e::rerated(portal, "1"), c.outcome);
    EXPECT_EQ(e2e::listed_files(portal, "1"), c.files);
    EXPECT_EQ(portal.value("SELECT cdr_file_path LIKE '%/127.0.0.1-" + c.name +
                           "/1/' AND end_time >= start_time FROM rerate_cdr_task"),
              "t");
    if (c.outcome != "0 4 ") {
      EXPECT_TRUE(daemon->wait_log("Rerate task 1 execution failed, error_code " +
                                   c.outcome.substr(0, 1) + ", " + c.outcome.substr(4) + "\n"));
    }
    EXPECT_TRUE(daemon->wait_log(c.log)) << c.log;
  }
  EXPECT_TRUE(daemon->runs());
}

/// A trunk of the sharing tests; each has its calls on both sides.
struct Item {
  const char* text;
  const char* fixed_date;  ///< null: the day of the call
  size_t prices;           ///< which of the prices of a day
};

const Item kItems[] = {{"1,1,1,0;", nullptr, 0},
                       {"2,1,1,1772409600;", kMarch2, 1},
                       {"3,1,1,0;", nullptr, 0},
                       {"4,1,2,0;", nullptr, 2},
                       {"5,1,2,1772323200;", kMarch1, 2}};

// Rate 1 ends on the first day at 18:00 and rate 4 at its end, so both are not among the rates of
// 2 March. Rate 3 begins on the third day at noon. Rate 5 is the other table's.
const char* const kSharedRates[] = {
    "rate_id=1 effective_date='2025-12-01T00:00:00Z' end_date='2026-03-01T18:00:00Z'",
    "rate_id=2 rate=0.2", "rate_id=3 rate=0.3 code='4420' effective_date='2026-03-03T12:00:00Z'",
    "rate_id=4 rate=0.7 code='4421' end_date='2026-03-02T00:00:00Z'",
    "rate_id=5 rate=0.5 rate_table_id=2"};
const char* const kPrice1 = "0.100000|0.100000|60|1.000000|1|44|UK|Britain|3|";
const char* const kPrice2 = "0.200000|0.200000|60|1.000000|2|44|UK|Britain|3|";
const char* const kPrice3 = "0.300000|0.300000|60|1.000000|3|4420|UK|Britain|3|";
const char* const kPrice4 = "0.700000|0.700000|60|1.000000|4|4421|UK|Britain|3|";
const char* const kPrice5 = "0.500000|0.500000|60|1.000000|5|44|UK|Britain|3|";

/// A call of every trunk. Its price by the rates of the day, by those of 2 March, and by the other
/// table.
struct SharedCall {
  size_t day;
  const char* call;
  const char* prices[3];
};

const SharedCall kSharedCalls[] = {
    {0, "", {kPrice1, kPrice2, kPrice5}},
    {0, "routing_digits=44211", {kPrice4, kPrice2, kPrice5}},
    {1, "routing_digits=44211 start_time_of_date=1772409600000000", {kPrice2, kPrice2, kPrice5}},
    {2, "start_time_of_date=1772539199000000", {kPrice2, kPrice2, kPrice5}},
    {2, "start_time_of_date=1772539200000000", {kPrice3, kPrice3, kPrice5}},
};

const char* const kDates[] = {"2026-03-01", "2026-03-02", "2026-03-03"};
const char* const kTables[] = {"20260301", "20260302", "20260303"};
const char* const kMidnights[] = {kMarch1, kMarch2, kMarch3};

Call call_of(const SharedCall& shared, size_t trunk) {
  const std::string id = std::to_string(trunk);
  Call call = e2e::call(std::string(shared.call) + " ingress_id=" + id + " egress_id=" + id);
  call["time"] = std::string(kDates[shared.day]) + " 12:00:00+00";
  return call;
}

std::string lines_of(size_t day, size_t trunk, Side side) {
  const Item& item = kItems[trunk - 1];
  const char* date = item.fixed_date ? item.fixed_date : kMidnights[day];
  std::string text;
  for (const SharedCall& shared : kSharedCalls) {
    if (shared.day == day)
      text += e2e::line(e2e::priced(call_of(shared, trunk), side,
                                    std::string(shared.prices[item.prices]) + date));
  }
  return text;
}

struct Order {
  const char* name;                     ///< also the database's
  std::vector<size_t> ingress, egress;  ///< trunks as the texts name them
  const char* loads;                    ///< rate table@day, in order, of the loads for a day
};

/// The loads for a day that the log tells of one job.
std::string loads_of(const std::string& log, const std::string& job) {
  std::string loads;
  const std::string begin = "Rerate task " + job + " Loading rate done, elapsed ";
  const std::string table = "rate table id ", date = " effective date as cdr date ";
  for (size_t at = log.find(begin); at != std::string::npos; at = log.find(begin, at + 1)) {
    const size_t id = log.find(table, at) + table.size(), end = log.find(date, id);
    loads += log.substr(id, end - id) + "@" + log.substr(end + date.size() + 8, 2) + " ";
  }
  return loads;
}

void submit(const Order& order, const std::string& id) {
  Session portal = e2e::cluster().connect(order.name);
  std::string setup = e2e::rate_table("1") + e2e::rate_table("2");
  for (const char* rate : kSharedRates)
    setup += e2e::rate(rate);
  for (const char* trunk : {"1", "2", "3", "4", "5"})
    setup += e2e::trunk(trunk, "t");
  portal.query(setup);
  for (size_t trunk = 1; trunk <= std::size(kItems); trunk++) {
    for (const SharedCall& shared : kSharedCalls)
      e2e::store_calls(portal, kTables[shared.day], {call_of(shared, trunk)});
  }
  std::string ingress, egress;
  for (size_t trunk : order.ingress)
    ingress += kItems[trunk - 1].text;
  for (size_t trunk : order.egress)
    egress += kItems[trunk - 1].text;
  e2e::rerate(portal, "to_time=1772582399 id=" + id + " ingress_trunk='" + ingress +
                          "' egress_trunk='" + egress + "'");
}

void check(const Order& order, const std::string& id) {
  Session portal = e2e::cluster().connect(order.name);
  EXPECT_EQ(e2e::rerated(portal, id), "0 4 ");
  std::string listed;
  for (size_t day = 0; day < std::size(kDates); day++) {
    std::map<size_t, std::string> files;
    for (Side side : {Side::ingress, Side::egress}) {
      const auto& trunks = side == Side::ingress ? order.ingress : order.egress;
      for (auto trunk = trunks.rbegin(); trunk != trunks.rend(); ++trunk) {
        files[*trunk] += lines_of(day, *trunk, side);
        listed += id + "-" + std::to_string(*trunk) + "-" + kDates[day] + ".cdr,";
      }
    }
    for (const auto& [trunk, content] : files)
      e2e::expect_file(e2e::cdr_file(portal, id, std::to_string(trunk), kDates[day]), content);
  }
  EXPECT_EQ(e2e::listed_files(portal, id) + ",", listed);
}

TEST(Rerate, TrunksShareRatesOfOneTableAndDateInAnyOrder) {
  // A list is walked from the text's end. Where a trunk's own date is the day, the day's trunks
  // share its rates.
  const std::vector<Order> orders = {
      {"plain", {1, 3}, {4}, "1@01 2@01 1@02 2@02 1@03 2@03 "},
      {"fixed_first", {2, 1}, {3, 4}, "1@01 2@01 2@02 1@03 2@03 "},
      {"fixed_last", {1, 2}, {4, 3}, "1@01 2@01 2@02 1@03 2@03 "},
      {"fixed_across", {1}, {2, 5, 4}, "1@01 2@02 1@03 2@03 "},
      {"fixed_before", {5, 2}, {1, 3, 4}, "1@01 2@02 2@03 1@03 "},
      {"fixed_only", {2}, {2}, ""},
      {"one_trunk", {1, 1}, {1}, "1@01 1@02 1@03 "},
      {"both_sides", {1, 2, 3}, {2, 1, 5}, "1@01 1@03 "},
  };
  auto daemon = e2e::daemon_for_each(orders);
  for (size_t i = 0; i < orders.size(); i++)
    submit(orders[i], std::to_string(100 + i));
  daemon->start();
  for (size_t i = 0; i < orders.size(); i++) {
    SCOPED_TRACE(orders[i].name);
    const std::string id = std::to_string(100 + i);
    check(orders[i], id);
    EXPECT_TRUE(daemon->wait_log("Rerate task " + id + " have been completed"));
    EXPECT_EQ(loads_of(daemon->log(), id), orders[i].loads);
  }
}

TEST(Rerate, TheLimitCountsWhatWaitsAndRunsInAllDatabases) {
  const std::vector<std::string> databases = {"rlimit1", "rlimit2", "rlimit3", "rlimit4"};
  auto daemon = e2e::daemon_for(databases);
  daemon->write_main_conf("[rerate]\nmax_rerate_task=5\n");
  std::vector<Session> portals, lockers;
  for (const std::string& name : databases) {
    portals.push_back(e2e::cluster().connect(name));
    lockers.push_back(e2e::cluster().connect(name));
    lockers.back().query("BEGIN; LOCK TABLE time_profile IN ACCESS EXCLUSIVE MODE");
    for (int job = 0; job < 2; job++)
      e2e::rerate(portals.back(), "ingress_trunk='1,0,,'");
  }
  daemon->start();
  // Three databases give two jobs each; the sixth is one more than the limit, and the fourth
  // database waits.
  EXPECT_TRUE(daemon->wait_log("Maximum rerate task in progress, can't start a new rerate task\n"));
  EXPECT_EQ(support::count_of(daemon->log(), "Added 127.0.0.1-rlimit"), 6);
  for (Session& locker : lockers)
    locker.query("ROLLBACK");
  for (Session& portal : portals) {
    for (const char* id : {"1", "2"})
      EXPECT_EQ(e2e::rerated(portal, id), "0 4 ");
  }
}

TEST(Rerate, AJobInWorkIsNotTakenTwiceAndItsIdIsFreeElsewhere) {
  auto daemon = e2e::daemon_for({"again1", "again2"});
  Session first = e2e::cluster().connect("again1"), second = e2e::cluster().connect("again2");
  Session locker = e2e::cluster().connect("again1");
  e2e::rerate(first, "ingress_trunk='1,0,,'");
  // The worker cannot leave status 0 behind.
  locker.query("BEGIN; SELECT * FROM rerate_cdr_task FOR UPDATE");
  daemon->start();
  EXPECT_TRUE(daemon->wait_log("127.0.0.1-again1 rerate task 1 have been in process\n"));
  e2e::rerate(second, "ingress_trunk='1,0,,'");
  EXPECT_EQ(e2e::rerated(second, "1"), "0 4 ");
  locker.query("ROLLBACK");
  EXPECT_EQ(e2e::rerated(first, "1"), "0 4 ");
}

}  // namespace
