// Reratings from the portal's row to the CDR files and the row's end.
//
// The scenarios of a table run in one daemon at the same time, each in a database of its own.
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "e2e/rerate_world.h"

namespace {

using e2e::Call;
using e2e::Columns;
using e2e::kMarch1;
using e2e::kMarch2;
using e2e::kMarch3;
using e2e::Side;
using support::Row;
using support::Session;
using testing::MatchesRegex;

/// What a minute costs by rate 5 of code 44, up to the effective date.
const char* const kMinute = "0.100000|0.100000|60|1.000000|5|44|UK|Britain|3|";

template <typename Scenario>
std::unique_ptr<support::DaemonHarness> daemon_for(const std::vector<Scenario>& scenarios) {
  std::vector<std::string> databases;
  for (const Scenario& s : scenarios)
    databases.push_back(s.name);
  return e2e::daemon_for(databases);
}

std::string quoted(const std::string& text) {
  return "'" + text + "'";
}

TEST(Rerate, EveryColumnReachesTheFileAndTheJobRow) {
  auto daemon = e2e::daemon_for({"whole"});
  Session portal = e2e::cluster().connect("whole");
  portal.query(e2e::rate_table("1") + e2e::trunk("1", "first") + e2e::rate({{"rate_id", "5"}}));
  Call full;
  size_t position = 0;
  for (const Row& row :
       portal.query("SELECT column_name, data_type FROM information_schema.columns"
                    " WHERE table_name = 'client_cdr' ORDER BY ordinal_position")) {
    const std::string number = std::to_string(position++);
    full[row[0]] = row[1] == "text" ? "t" + number : number;
    if (row[1] == "numeric")
      full[row[0]] += ".5000000000";
  }
  full = [&] {
    Call all = full;
    for (const auto& [name, value] : e2e::call({{"ingress_dnis_type", "0"}, {"session_id", "é"}}))
      all[name] = value;
    return all;
  }();
  e2e::store_calls(portal, "20260301", {full});
  e2e::rerate(portal, {{"ingress_trunk", "'1,1,1,0'"}, {"include_q850", "1"}});
  e2e::rerate(portal, {{"egress_trunk", "'1,1,1,0'"}});
  // Files are appended to.
  const auto folder = e2e::output_folder(daemon->path() / "rerate_cdr", "whole");
  std::filesystem::create_directories(folder);
  support::write_file(folder / "1-1-2026-03-01.cdr", "kept\n");
  daemon->start();
  EXPECT_EQ(e2e::rerated(portal, "1"), "0 4 ");
  EXPECT_EQ(e2e::rerated(portal, "2"), "0 4 ");
  e2e::expect_file(
      e2e::cdr_file(portal, "1", "1"),
      "kept\n" + e2e::line(e2e::priced(full, Side::ingress, std::string(kMinute) + kMarch1), true));
  e2e::expect_file(e2e::cdr_file(portal, "2", "1"),
                   e2e::line(e2e::priced(full, Side::egress, std::string(kMinute) + kMarch1)));

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

/// The calls that a range takes on one day, by session.
struct Day {
  const char* date;
  const char* midnight;
  std::vector<const char*> calls;
};

struct Range {
  std::string name;  ///< also the database's
  Columns job;
  std::vector<Day> days;
};

const char* const kFebruary28 = "1772236800";

/// By day of the table: time of the call's end and session; stray is from another day.
const std::vector<std::pair<std::string, std::vector<std::pair<const char*, const char*>>>>
    kRangeCalls = {
        {"20260228",
         {{"2026-02-28 22:59:59", "a0"},
          {"2026-02-28 23:00:00", "a1"},
          {"2026-02-28 23:59:59", "a2"}}},
        {"20260301",
         {{"2026-02-28 10:00:00", "stray"},
          {"2026-03-01 00:00:00", "b0"},
          {"2026-03-01 12:00:00", "b1"},
          {"2026-03-01 12:00:01", "b2"},
          {"2026-03-01 23:59:59", "b3"}}},
        {"20260302",
         {{"2026-03-02 00:00:00", "c0"},
          {"2026-03-02 00:00:01", "c1"},
          {"2026-03-02 12:00:00", "c2"}}},
        {"20260303",
         {{"2026-03-03 06:00:00", "d0"},
          {"2026-03-03 12:00:00", "d1"},
          {"2026-03-03 12:00:01", "d2"}}},
};

std::vector<Range> ranges() {
  const auto job = [](const char* from, const char* to, const char* zone = "0") {
    return Columns{{"from_time", from},
                   {"to_time", to},
                   {"timezone", zone},
                   {"ingress_trunk", "'1,1,1,0'"},
                   {"egress_trunk", "'2,1,1,0'"}};
  };
  const auto february28 = [](const std::vector<const char*>& calls) {
    return Day{"2026-02-28", kFebruary28, calls};
  };
  const auto march1 = [](const std::vector<const char*>& calls) {
    return Day{"2026-03-01", kMarch1, calls};
  };
  const auto march2 = [](const std::vector<const char*>& calls) {
    return Day{"2026-03-02", kMarch2, calls};
  };
  const auto march3 = [](const std::vector<const char*>& calls) {
    return Day{"2026-03-03", kMarch3, calls};
  };
  return {
      {"whole_day", job(kMarch1, "1772409599"), {march1({"stray", "b0", "b1", "b2", "b3"})}},
      {"bounds_count", job("1772366400", "1772366401"), {march1({"b1", "b2"})}},
      {"from_second", job("1772323201", "1772366400"), {march1({"b1"})}},
      {"three_days",
       job("1772366401", "1772539200"),
       {march1({"b2", "b3"}), march2({"c0", "c1", "c2"}), march3({"d0", "d1"})}},
      {"to_midnight", job("1772366401", kMarch2), {march1({"b2", "b3"}), march2({"c0"})}},
      {"zone_east",
       job(kMarch1, "1772366400", "1"),
       {february28({"a1", "a2"}), march1({"stray", "b0"})}},
      {"zone_west", job("1772366400", "1772370000", "-12"), {march2({"c0", "c1"})}},
      {"no_calls", job("1772542800", "1772546400"), {march3({})}},
      // A flag is a number of 8 bits; whatever is not 1 switches the trunk off.
      {"flags",
       e2e::merged(job("1772366400", "1772366401"),
                   {{"ingress_trunk", "'9,0,,;1,257,1,0'"},
                    {"egress_trunk", "'1,0,,;1,2,8,0;1,t,,;2,1x,1,0;'"}}),
       {march1({"b1", "b2"})}},
      {"all_off",
       e2e::merged(job(kMarch1, kMarch2),
                   {{"ingress_trunk", "'1,0,,'"}, {"egress_trunk", "'2,0,,'"}}),
       {}},
  };
}

TEST(Rerate, TheRangeChoosesDaysAndCalls) {
  const std::vector<Range> table = ranges();
  auto daemon = daemon_for(table);
  for (const Range& r : table) {
    Session portal = e2e::cluster().connect(r.name);
    portal.query(e2e::rate_table("1") + e2e::trunk("1", "in") + e2e::trunk("2", "out") +
                 e2e::rate({{"rate_id", "5"}}));
    for (const auto& [day, calls] : kRangeCalls) {
      std::vector<Call> stored{e2e::call({{"call_duration", "0"}, {"egress_id", "2"}})};
      for (const auto& [time, session] : calls)
        stored.push_back(e2e::call(
            {{"time", std::string(time) + "+00"}, {"session_id", session}, {"egress_id", "2"}}));
      e2e::store_calls(portal, day, stored);
    }
    e2e::rerate(portal, r.job);
  }
  daemon->start();
  for (const Range& r : table) {
    SCOPED_TRACE(r.name);
    Session portal = e2e::cluster().connect(r.name);
    EXPECT_EQ(e2e::rerated(portal, "1"), "0 4 ");
    std::string files;
    for (const Day& day : r.days) {
      std::string ingress, egress;
      for (const char* session : day.calls) {
        const Call call = e2e::call({{"session_id", session}, {"egress_id", "2"}});
        ingress += e2e::line(e2e::priced(call, Side::ingress, std::string(kMinute) + day.midnight));
        egress += e2e::line(e2e::priced(call, Side::egress, std::string(kMinute) + day.midnight));
      }
      // An egress trunk without calls gets an empty file, an ingress trunk none.
      if (!ingress.empty()) {
        files += std::string("1-1-") + day.date + ".cdr,";
        e2e::expect_file(e2e::cdr_file(portal, "1", "1", day.date), ingress);
      }
      files += std::string("1-2-") + day.date + ".cdr,";
      e2e::expect_file(e2e::cdr_file(portal, "1", "2", day.date), egress);
    }
    EXPECT_EQ(e2e::listed_files(portal, "1"), files.substr(0, files.size() - !files.empty()));
    const auto written = std::filesystem::directory_iterator(
        portal.value("SELECT cdr_file_path FROM rerate_cdr_task"));
    EXPECT_EQ(std::distance(written, {}), support::count_of(files, ","));
  }
}

struct Check {
  std::string name;  ///< also the database's
  Columns job;
  std::string outcome;     ///< "err_code status progress"
  std::string log = "";    ///< a line of it
  std::string setup = "";  ///< SQL
  std::string files = "";  ///< the job's file list
};

/// Trunk texts that are refused.
const char* const kBadTrunks[] = {"1,1,1", "1,1,,0", ",1,1,0", "1,,1,0", "1,1,1,", "1,1,1,0;;"};

std::vector<Check> checks() {
  const std::string trunk = "'1,1,1,0'", bad = "'1,1'", date = "1 5 Rerate CDR date invalid";
  const std::string lrn = "1 5 LRN is not setting", fixed = "'1,1,1,1772409600'";
  const std::string no_jurisdiction = "3 5 Not jurisdiction data";
  const std::string table = e2e::rate_table("1");
  const auto with_lrn = [&](const Columns& columns) {
    return e2e::merged({{"update_lrn", "1"}, {"egress_trunk", trunk}}, columns);
  };
  const std::string ready = table + e2e::rate({});
  const std::string file = "1-1-2026-03-01.cdr";
  const std::string lrn_log = "Rerate task 1 LRN is not setting\n";
  std::vector<Check> list = {
      {"date_same",
       {{"to_time", kMarch1}, {"ingress_trunk", bad}},
       date,
       "Rerate task 1 CDR date invalid\n"},
      {"date_back", {{"from_time", kMarch2}, {"to_time", kMarch1}}, date},
      {"date_null", {{"from_time", "NULL"}, {"to_time", "NULL"}}, date},
      {"bad_both",
       {{"ingress_trunk", bad}, {"egress_trunk", bad}},
       "1 5 Rerate CDR ingress trunk invalid",
       "rerate task 1 ingress trunk info invalid, stop it\n"},
      {"no_trunk", {}, "1 5 Rerate CDR not select trunk", "Rerate task 1 not select trunk\n"},
      {"no_text",
       {{"ingress_trunk", "''"}, {"egress_trunk", "''"}, {"update_lrn", "1"}},
       "1 5 Rerate CDR not select trunk"},
      {"lrn_nothing", with_lrn({}), lrn, lrn_log},
      {"lrn_low", with_lrn({{"lrn_server_ip", "''"}, {"lrn_server_port", "66559"}}), lrn, lrn_log},
      {"lrn_port", with_lrn({{"lrn_server_port", "66560"}}), "0 4 ", "", ready, file},
      {"lrn_ip", with_lrn({{"lrn_server_ip", "'10.0.0.1'"}}), "0 4 ", "", ready, file},
      {"no_prefixes",
       {{"ingress_trunk", trunk}, {"update_us_jurisdiction", "1"}},
       no_jurisdiction,
       "Rerate task 1 not jurisdiction data\n",
       ready},
      {"prefixes_fail",
       {{"ingress_trunk", trunk}, {"update_us_jurisdiction", "1"}},
       no_jurisdiction,
       "",
       ready + "DROP TABLE jurisdiction_prefix"},
      {"table_in", {{"ingress_trunk", "'2,0,,;1,1,9,0'"}}, "3 5 Get ingress rate table 9 failed"},
      {"table_out",
       {{"ingress_trunk", trunk}, {"egress_trunk", "'1,1,9,0'"}},
       "3 5 Get egress rate table 9 failed",
       "",
       ready},
      {"fixed_in", {{"ingress_trunk", fixed}}, "3 5 Get ingress  rate failed", "", table},
      {"fixed_out",
       {{"egress_trunk", fixed}},
       "3 5 Get egress london rate failed",
       "",
       table + e2e::trunk("1", "london")},
      // The only rate ended at the very moment that is asked for.
      {"fixed_ended",
       {{"egress_trunk", fixed}},
       "3 5 Get egress  rate failed",
       "",
       table + e2e::rate({{"end_date", "'2026-03-02 00:00:00+00'"}})},
      // Rates of the call's day that are missing end the day, not the job.
      {"day_in",
       {{"ingress_trunk", trunk}, {"egress_trunk", trunk}},
       "0 4 ",
       "Rerate task 1 have been completed, cdr count 0, elapsed ",
       table},
      {"day_out",
       {{"egress_trunk", trunk}},
       "0 4 ",
       "",
       table + e2e::rate({{"effective_date", "'2026-03-03 00:00:00+00'"}})},
      {"rates_fail",
       {{"egress_trunk", trunk}},
       "0 4 ",
       "Rerate Rate PQexec failed, PQstatus:0, ",
       table + "DROP TABLE rate"},
  };
  for (const char* text : kBadTrunks) {
    const std::string name = "bad" + std::to_string(list.size());
    const bool ingress = list.size() % 2 == 0;
    list.push_back(
        {name,
         {{ingress ? "ingress_trunk" : "egress_trunk", quoted(text)}},
         std::string("1 5 Rerate CDR ") + (ingress ? "ingress" : "egress") + " trunk invalid"});
  }
  return list;
}

TEST(Rerate, EveryFailingCheckHasItsCodeAndText) {
  const std::vector<Check> table = checks();
  auto daemon = daemon_for(table);
  for (const Check& c : table) {
    Session portal = e2e::cluster().connect(c.name);
    if (!c.setup.empty())
      portal.query(c.setup);
    // Where rates fail no call is asked for; the others find the day without calls.
    if (c.name.starts_with("lrn"))
      e2e::store_calls(portal, "20260301", {});
    e2e::rerate(portal, c.job);
  }
  daemon->start();
  for (const Check& c : table) {
    SCOPED_TRACE(c.name + " " + testing::PrintToString(c.job));
    Session portal = e2e::cluster().connect(c.name);
    EXPECT_EQ(e2e::rerated(portal, "1"), c.outcome);
    EXPECT_EQ(e2e::listed_files(portal, "1"), c.files);
    EXPECT_EQ(portal.value("SELECT cdr_file_path LIKE '%/127.0.0.1-" + c.name +
                           "/1/' AND end_time >= start_time FROM rerate_cdr_task"),
              "t");
    if (!c.outcome.ends_with(" ")) {
      const std::string code = c.outcome.substr(0, 1);
      EXPECT_TRUE(daemon->wait_log("Rerate task 1 execution failed, error_code " + code + ", " +
                                   c.outcome.substr(4) + "\n"));
    }
    EXPECT_TRUE(daemon->wait_log(c.log)) << c.log;
  }
  EXPECT_TRUE(daemon->runs());
}

/// A trunk that rates are shared with or not.
struct Item {
  int trunk;
  std::string text;
  const char* fixed_date;  ///< null: the day of the call
  bool other_table;
};

const Item kItems[] = {
    {1, "1,1,1,0", nullptr, false},         {2, "2,1,1,1772409600", kMarch2, false},
    {3, "3,1,1,0", nullptr, false},         {4, "4,1,2,0", nullptr, true},
    {5, "5,1,2,1772323200", kMarch1, true},
};

/// What the calls of one day cost, up to the effective date, in order.
struct SharedDay {
  const char* date;
  const char* midnight;
  std::vector<Call> calls;
  std::vector<const char*> by_day, by_march2, other;  ///< prices by what the trunk names
};

// Rate 1 ends on the first day at 18:00 and rate 4 at its end, so both are not among the rates of
// 2 March. Rate 3 begins on the third day at noon.
const char* const kRate1 = "0.100000|0.100000|60|1.000000|1|44|UK|Britain|3|";
const char* const kRate2 = "0.200000|0.200000|60|1.000000|2|44|UK|Britain|3|";
const char* const kRate3 = "0.300000|0.300000|60|1.000000|3|4420|UK|Britain|3|";
const char* const kRate4 = "0.700000|0.700000|60|1.000000|4|4421|UK|Britain|3|";
const char* const kRate5 = "0.500000|0.500000|60|1.000000|5|44|UK|Britain|3|";

std::vector<SharedDay> shared_days() {
  const Call noon = e2e::call({}), other = e2e::call({{"routing_digits", "44211"}});
  const auto starting = [](Call call, const char* start) {
    call["start_time_of_date"] = std::string(start) + "000000";
    return call;
  };
  return {
      {"2026-03-01", kMarch1, {noon, other}, {kRate1, kRate4}, {kRate2, kRate2}, {kRate5, kRate5}},
      {"2026-03-02", kMarch2, {starting(other, kMarch2)}, {kRate2}, {kRate2}, {kRate5}},
      {"2026-03-03",
       kMarch3,
       {starting(noon, "1772539199"), starting(noon, "1772539200")},
       {kRate2, kRate3},
       {kRate2, kRate3},
       {kRate5, kRate5}}};
}

struct Order {
  std::string name;                  ///< also the database's
  std::vector<int> ingress, egress;  ///< trunks as the texts name them
  std::string loads;                 ///< rate table@day, in order, of the loads for a day
};

std::string text_of(const std::vector<int>& trunks) {
  std::string text;
  for (int trunk : trunks)
    text += kItems[trunk - 1].text + ";";
  return text;
}

std::string lines_of(const SharedDay& day, const Item& item, Side side) {
  std::string text;
  for (size_t i = 0; i < day.calls.size(); i++) {
    Call call = day.calls[i];
    call["ingress_id"] = call["egress_id"] = std::to_string(item.trunk);
    const auto& prices = item.other_table  ? day.other
                         : item.fixed_date ? day.by_march2
                                           : day.by_day;
    const char* date = item.fixed_date ? item.fixed_date : day.midnight;
    text += e2e::line(e2e::priced(call, side, std::string(prices[i]) + date));
  }
  return text;
}

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
  auto daemon = daemon_for(orders);
  int job = 100;
  for (const Order& o : orders) {
    Session portal = e2e::cluster().connect(o.name);
    std::string setup = e2e::rate_table("1") + e2e::rate_table("2") +
                        e2e::rate({{"rate_id", "1"},
                                   {"effective_date", "'2025-12-01 00:00:00+00'"},
                                   {"end_date", "'2026-03-01 18:00:00+00'"}}) +
                        e2e::rate({{"rate_id", "2"}, {"rate", "0.2"}}) +
                        e2e::rate({{"rate_id", "3"},
                                   {"rate", "0.3"},
                                   {"code", "'4420'"},
                                   {"effective_date", "'2026-03-03 12:00:00+00'"}}) +
                        e2e::rate({{"rate_id", "4"},
                                   {"rate", "0.7"},
                                   {"code", "'4421'"},
                                   {"end_date", "'2026-03-02 00:00:00+00'"}}) +
                        e2e::rate({{"rate_id", "5"}, {"rate", "0.5"}, {"rate_table_id", "2"}});
    for (const Item& item : kItems)
      setup += e2e::trunk(std::to_string(item.trunk), "t");
    portal.query(setup);
    for (const SharedDay& day : shared_days()) {
      std::string name = day.date;
      std::erase(name, '-');
      std::vector<Call> calls;
      for (const Item& item : kItems) {
        for (Call call : day.calls) {
          call["ingress_id"] = call["egress_id"] = std::to_string(item.trunk);
          call["time"] = std::string(day.date) + " 12:00:00+00";
          calls.push_back(call);
        }
      }
      e2e::store_calls(portal, name, calls);
    }
    e2e::rerate(portal, {{"id", std::to_string(job++)},
                         {"to_time", "1772582399"},
                         {"ingress_trunk", quoted(text_of(o.ingress))},
                         {"egress_trunk", quoted(text_of(o.egress))}});
  }
  daemon->start();
  job = 100;
  for (const Order& o : orders) {
    SCOPED_TRACE(o.name);
    const std::string id = std::to_string(job++);
    Session portal = e2e::cluster().connect(o.name);
    ASSERT_EQ(e2e::rerated(portal, id), "0 4 ");
    std::string listed;
    for (const SharedDay& day : shared_days()) {
      std::map<int, std::string> files;
      const auto add = [&](const std::vector<int>& trunks, Side side) {
        for (auto trunk = trunks.rbegin(); trunk != trunks.rend(); ++trunk) {
          files[*trunk] += lines_of(day, kItems[*trunk - 1], side);
          listed += (listed.empty() ? "" : ",") + id + "-" + std::to_string(*trunk) + "-" +
                    day.date + ".cdr";
        }
      };
      add(o.ingress, Side::ingress);
      add(o.egress, Side::egress);
      for (const auto& [trunk, content] : files)
        e2e::expect_file(e2e::cdr_file(portal, id, std::to_string(trunk), day.date), content);
    }
    EXPECT_EQ(e2e::listed_files(portal, id), listed);
    EXPECT_EQ(loads_of(daemon->log(), id), o.loads);
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
      e2e::rerate(portals.back(), {{"ingress_trunk", "'1,0,,'"}});
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
  e2e::rerate(first, {{"ingress_trunk", "'1,0,,'"}});
  // The worker cannot leave status 0 behind.
  locker.query("BEGIN; SELECT * FROM rerate_cdr_task FOR UPDATE");
  daemon->start();
  EXPECT_TRUE(daemon->wait_log("127.0.0.1-again1 rerate task 1 have been in process\n"));
  e2e::rerate(second, {{"ingress_trunk", "'1,0,,'"}});
  EXPECT_EQ(e2e::rerated(second, "1"), "0 4 ");
  locker.query("ROLLBACK");
  EXPECT_EQ(e2e::rerated(first, "1"), "0 4 ");
}

}  // namespace
