// What reratings charge: every call of these tables has a trunk and a rate table of its own and is
// rated twice, as a call that came from the trunk and as one that went to it.
//
// All figures are worked out by hand. Columns of a price: rate, cost, seconds and minutes billed.
#include <gtest/gtest.h>

#include "e2e/rerate_world.h"

namespace {

using e2e::Call;
using e2e::Columns;
using e2e::Side;
using support::Session;

struct Price {
  const char* rule;
  std::vector<Columns> rates;  ///< of the call's rate table
  Call call;
  std::string price;
  size_t record = 0;       ///< which of the rates is used
  const char* type = "3";  ///< rate type written
  bool noted = false;      ///< the log tells that no rate was found
  int decimals = 6;        ///< -1: the trunk has no settings
  int rounding = 1;
  Columns table = {};  ///< settings of the rate table
};

/// One database, rated with the same switches.
struct Group {
  std::string name;
  Columns job;
  std::string setup;
  std::vector<Price> prices;
};

const char* const kMinute = "0.100000|0.100000|60|1.000000";
const char* const kNothing = "0.100000|0.000000|0|0.000000";

Price unrated(const char* rule, const std::vector<Columns>& rates, const Call& call, bool noted) {
  return {.rule = rule, .rates = rates, .call = call, .price = "-1", .noted = noted};
}

Price lasting(const char* rule, const char* seconds, const Columns& rate, const char* price) {
  return {.rule = rule, .rates = {rate}, .call = {{"call_duration", seconds}}, .price = price};
}

Price rounded(const char* rate, int decimals, int rounding, const std::string& rate_and_cost) {
  return {.rule = "rounding",
          .rates = {{{"rate", rate}}},
          .call = {},
          .price = rate_and_cost + "|60|1.000000",
          .decimals = decimals,
          .rounding = rounding};
}

Group arithmetic() {
  const Columns fee{{"setup_fee", "0.25"}};
  return {
      "arithmetic",
      {},
      "",
      {
          lasting("a minute", "60", {}, kMinute),
          lasting("a started interval counts whole", "61", {}, "0.100000|0.110000|66|1.100000"),
          lasting("the minimum is no multiple of the interval", "7", {{"min_time", "31"}},
                  "0.100000|0.051667|31|0.516667"),
          lasting("as long as the minimum", "30", {{"min_time", "30"}},
                  "0.100000|0.050000|30|0.500000"),
          lasting("a second above the minimum", "31", {{"min_time", "30"}},
                  "0.100000|0.060000|36|0.600000"),
          lasting("grace is free of the fee too but has minutes", "9",
                  {{"grace_time", "10"}, {"setup_fee", "0.25"}}, "0.100000|0.000000|12|0.200000"),
          lasting("as long as the grace", "10", {{"grace_time", "10"}},
                  "0.100000|0.020000|12|0.200000"),
          lasting("the fee comes once", "120", fee, "0.100000|0.450000|120|2.000000"),
          lasting("a rate of half a minute", "60", {{"seconds", "30"}},
                  "0.100000|0.200000|60|2.000000"),
          lasting("256 seconds are none", "60", {{"seconds", "256"}, {"setup_fee", "0.25"}},
                  kNothing),
          lasting("316 seconds are 60", "60", {{"seconds", "316"}}, kMinute),
          lasting("no seconds", "60", {{"seconds", "NULL"}}, kNothing),
          lasting("no interval", "60", {{"interval", "0"}, {"setup_fee", "0.25"}}, kNothing),
          lasting("an interval of 256 is none", "60", {{"interval", "256"}}, kNothing),
          lasting("an interval of 300 is 44", "60", {{"interval", "300"}},
                  "0.100000|0.146667|88|1.466667"),
          lasting("billed seconds have 16 bits", "65537", {}, "0.100000|0.003333|2|0.033333"),
          lasting("at the tolerance", "60", {{"rate", "0.000001"}},
                  "0.000001|0.000001|60|1.000000"),
          unrated("a zero rate", {{{"rate", "0"}, {"setup_fee", "1"}}}, {}, false),
          unrated("below the tolerance", {{{"rate", "0.0000009"}}}, {}, false),
          unrated("a negative rate", {{{"rate", "-0.5"}}}, {}, false),
          unrated("a rate of minus one is like none", {{{"rate", "-1"}}}, {}, true),
          unrated("no rate", {{{"rate", "NULL"}}}, {}, true),
          rounded("0.123456", 4, 0, "0.123456|0.123500"),
          rounded("0.123456", 4, 1, "0.123456|0.123400"),
          rounded("0.123456", 4, 2, "0.123456|0.123500"),
          rounded("0.123446", 4, 0, "0.123446|0.123500"),
          rounded("0.123446", 4, 2, "0.123446|0.123400"),
          rounded("0.123456", 4, 3, "0.123456|0.123400"),
          rounded("0.1234", 4, 0, "0.123400|0.123400"),
          rounded("0.123456", 5, 0, "0.123456|0.123460"),
          rounded("0.123456", 1, 0, "0.123456|0.200000"),
          rounded("0.999990", 2, 0, "0.999990|1.000000"),
          rounded("1.9", 0, 0, "1.900000|1.000000"),
          rounded("1.9", 0, 2, "1.900000|1.000000"),
          rounded("1.9", -1, 0, "1.900000|1.000000"),
          rounded("0.123456", 6, 0, "0.123456|0.123456"),
          rounded("0.123456", 7, 2, "0.123456|0.123456"),
          rounded("0.123456", 258, 257, "0.123456|0.120000"),
          // Single precision holds 16.7 as 16.700001, whose last digit rounds it up.
          rounded("16.7", 2, 0, "16.700001|16.709999"),
      }};
}

Price chosen(const char* rule, const std::vector<Columns>& rates, size_t record,
             const Call& call = {}) {
  return {.rule = rule, .rates = rates, .call = call, .price = kMinute, .record = record};
}

Group record_choice() {
  const Columns any{}, shorter{{"code", "'4'"}}, other{{"code", "'33'"}};
  const auto from = [](const char* date) {
    return Columns{{"effective_date", "'" + std::string(date) + "+00'"}};
  };
  const auto until = [](const char* date) {
    return Columns{{"end_date", "'" + std::string(date) + "+00'"}};
  };
  const Call ported{{"ingress_dnis_type", "1"}, {"lrn_dnis", "3312345"}};
  return {
      "records",
      {},
      "",
      {
          chosen("the oldest", {from("2025-01-01"), from("2026-02-01")}, 0),
          chosen("the oldest, loaded last", {from("2026-02-01"), from("2025-01-01")}, 1),
          chosen("of equal dates the one loaded last", {any, any}, 1),
          chosen("in force from this second on", {from("2026-03-01 12:00:00"), shorter}, 0),
          chosen("in force a second later", {from("2026-03-01 12:00:01"), shorter}, 1),
          chosen("microseconds are cut", {from("2026-03-01 12:00:00"), shorter}, 1,
                 {{"start_time_of_date", "1772366399999999"}}),
          chosen("in force up to this second", {until("2026-03-01 12:00:00"), shorter}, 0),
          chosen("ended a second ago", {until("2026-03-01 11:59:59"), shorter}, 1),
          chosen("ended at the requested date", {until("2026-03-01 00:00:00"), shorter}, 1,
                 {{"start_time_of_date", "1772323200000000"}}),
          chosen("the longest code, however new",
                 {any, {{"code", "'4420'"}, {"effective_date", "'2026-02-28 00:00:00+00'"}}}, 1),
          chosen("the whole number", {any, {{"code", "'442012345678'"}}}, 1),
          chosen("more than the number", {any, {{"code", "'4420123456789'"}}}, 0),
          chosen("over a gap of many digits",
                 {{{"code", "'44201234'"}, {"end_date", "'2026-03-01 06:00:00+00'"}}, shorter}, 1),
          chosen("no names", {{{"code_name", "NULL"}, {"country", "''"}}}, 0),
          chosen("a country with a comma keeps its quotes", {{{"country", "'Britain, Great'"}}}, 0),
          chosen("routed number", {any, other}, 0, {{"lrn_dnis", "3312345"}}),
          chosen("routed number by type 0", {any, other}, 0,
                 {{"ingress_dnis_type", "0"}, {"lrn_dnis", "3312345"}}),
          chosen("ported number", {any, other}, 1, ported),
          chosen("the egress side's own type is not looked at", {any, other}, 0,
                 {{"egress_dnis_type", "1"}, {"lrn_dnis", "3312345"}}),
          unrated("no ported number", {any}, {{"ingress_dnis_type", "1"}}, true),
          unrated("no number", {any}, {{"routing_digits", ""}}, true),
          unrated("another number", {any}, {{"routing_digits", "33"}}, true),
          unrated("a rate without a code is no default", {{{"code", "''"}}}, {}, true),
          unrated("not yet in force", {from("2026-03-01 12:00:01")}, {}, true),
      }};
}

/// Whether a rate with the profile applies to a call that starts at this second of Sunday.
struct Profile {
  const char* rule;
  const char* type_and_weeks;
  const char* start;
  const char* end;
  const char* zone;
  int hour, minute, second;
  bool applies;
};

const Profile kProfiles[] = {
    {"every weekday", "1,1,7", "00:00:00", "23:59:59", "", 12, 0, 0, true},
    {"working days", "1,1,5", "00:00:00", "23:59:59", "", 12, 0, 0, false},
    {"Sunday is 7", "1,7,7", "00:00:00", "23:59:59", "", 12, 0, 0, true},
    {"Sunday is not 0", "1,0,6", "00:00:00", "23:59:59", "", 12, 0, 0, false},
    {"east, already Monday", "1,1,1", "00:00:00", "02:00:00", "+0200", 23, 0, 0, true},
    {"east, no more Sunday", "1,7,7", "00:00:00", "02:00:00", "+0200", 23, 0, 0, false},
    {"east, still Sunday", "1,7,7", "23:00:00", "23:59:59", "+0200", 21, 30, 0, true},
    {"west, still Saturday", "1,6,6", "22:00:00", "23:30:00", "-0200", 1, 0, 0, true},
    {"west, already Sunday", "1,7,7", "00:00:00", "00:30:00", "-0200", 2, 0, 0, true},
    {"minus four hours are none", "2,1,1", "12:00:00", "12:30:00", "-0400", 12, 0, 0, true},
    {"half hours are none", "2,1,1", "12:00:00", "12:30:00", "+0530", 12, 0, 0, true},
    {"type 2 knows no weekday", "2,1,1", "11:00:00", "13:00:00", "", 12, 0, 0, true},
    {"type 2 knows zones", "2,1,1", "11:00:00", "13:00:00", "+0100", 12, 30, 0, false},
    {"no wrap, before midnight", "2,1,7", "22:00:00", "06:30:00", "", 23, 0, 0, false},
    {"no wrap, after midnight", "2,1,7", "22:00:00", "06:30:00", "", 3, 0, 0, false},
    {"but the last hour", "2,1,7", "22:00:00", "06:30:00", "", 6, 30, 0, true},
    {"and not beyond", "2,1,7", "22:00:00", "06:30:00", "", 6, 30, 1, false},
    {"from its minute on", "2,1,7", "12:30:00", "14:00:00", "", 12, 30, 0, true},
    {"not before", "2,1,7", "12:30:00", "14:00:00", "", 12, 29, 59, false},
    {"up to its end", "2,1,7", "12:30:00", "14:00:00", "", 14, 0, 0, true},
    {"not after", "2,1,7", "12:30:00", "14:00:00", "", 14, 0, 1, false},
    {"within one hour", "2,1,7", "12:30:00", "12:45:00", "", 12, 45, 0, true},
    {"too early within one hour", "2,1,7", "12:30:00", "12:45:00", "", 12, 29, 59, false},
    {"too late within one hour", "2,1,7", "12:30:00", "12:45:00", "", 12, 45, 1, false},
    {"no hours", "2,1,7", "", "", "", 12, 0, 0, false},
    {"another type always applies", "3,1,1", "00:00:00", "01:00:00", "", 12, 0, 0, true},
};

Group time_profiles() {
  Group group{"profiles", {}, "", {}};
  for (const Profile& p : kProfiles) {
    const auto text = [](const std::string& value) {
      return value.empty() ? "NULL" : "'" + value + "'";
    };
    const std::string id = std::to_string(group.prices.size() + 1);
    group.setup +=
        "INSERT INTO time_profile (time_profile_id, type, start_week, end_week, start_time,"
        " end_time, time_zone) VALUES (" +
        id + "," + p.type_and_weeks + "," + text(p.start) + "," + text(p.end) + "," + text(p.zone) +
        ");";
    const long start = 1772323200 + p.hour * 3600 + p.minute * 60 + p.second;
    group.prices.push_back(chosen(p.rule, {{{"time_profile_id", id}}, {{"code", "'4'"}}},
                                  p.applies ? 0 : 1,
                                  {{"start_time_of_date", std::to_string(start) + "000000"}}));
  }
  group.prices.push_back(
      chosen("an unknown profile", {{{"time_profile_id", "999"}}, {{"code", "'4'"}}}, 1));
  return group;
}

/// A call from 1212... to `number`; its rates are 0.1, between states 0.2, within one 0.3, local
/// 0.4, with the columns of `rate` in their place.
Price state(const char* rule, const char* ani, const char* number, const char* price,
            const char* type, const Columns& table = {{"jurisdiction_country_id", "1"}},
            const Columns& rate = {}, const Call& call = {}) {
  Price p{.rule = rule,
          .rates = {e2e::merged({{"code", std::string("'") + number[0] + "'"},
                                 {"inter_rate", "0.2"},
                                 {"intra_rate", "0.3"},
                                 {"local_rate", "0.4"}},
                                rate)},
          .call = call,
          .price = price,
          .type = type,
          .table = table};
  p.call["translation_ani"] = ani;
  p.call["routing_digits"] = number;
  return p;
}

const char* const kInter = "0.200000|0.200000|60|1.000000";
const char* const kIntra = "0.300000|0.300000|60|1.000000";
const char* const kLocal = "0.400000|0.400000|60|1.000000";
const char* const kHome = "12125550001";
const char* const kThere = "12125550002";
const Call kLocalCall{{"ingress_rate_type", "5"}, {"egress_rate_type", "5"}};

Group kinds_of_rate() {
  const Columns bounded{{"jurisdiction_country_id", "1"}, {"jurisdiction_prefix", "'1'"},
                        {"prefix_min_length", "11"},      {"prefix_max_length", "267"},
                        {"noprefix_min_length", "10"},    {"noprefix_max_length", "10"}};
  const Columns country{{"jurisdiction_country_id", "1"}};
  Price no_inter = state("no rate between states", "12135550001", kThere, "-1", "3", country,
                         {{"inter_rate", "NULL"}});
  no_inter.noted = true;
  return {
      "kinds",
      {{"update_us_jurisdiction", "1"}, {"update_local_rate", "1"}},
      "INSERT INTO jurisdiction_prefix VALUES (1,'1212',10,1), (2,'1213',11,1), (3,'1214',12,1),"
      " (20,'1214',13,1), (4,'12145',13,1), (5,'',20,3), (6,'1212',21,3), (7,'1212',30,2);",
      {
          state("within a state", kHome, kThere, kIntra, "2"),
          state("both numbers without their 1", "2125550001", "2125550002", kIntra, "2"),
          state("between states", "12135550001", kThere, kInter, "1"),
          state("caller unknown", "9995550001", kThere, kMinute, "3"),
          state("caller empty", "", kThere, kMinute, "3"),
          state("called unknown", kHome, "13335550001", kMinute, "3"),
          state("billed by the ported number", kHome, kThere, kInter, "1", country, {},
                {{"ingress_dnis_type", "2"}, {"lrn_dnis", "12135550002"}}),
          no_inter,
          state("a zero rate between states", "12135550001", kThere, "-1", "3", country,
                {{"inter_rate", "0"}}),
          state("no country", kHome, kThere, kMinute, "3", {}),
          state("a country of its own", kHome, kThere, kIntra, "2",
                {{"jurisdiction_country_id", "2"}}),
          state("the empty prefix counts as found", "9995550001", kThere, kInter, "1",
                {{"jurisdiction_country_id", "3"}}),
          state("of one prefix the first id in byte order", "12145550001", "12146660001", kIntra,
                "2"),
          state("local", kHome, kThere, kLocal, "5", country, {}, kLocalCall),
          state("no local rate", kHome, kThere, kIntra, "2", country, {{"local_rate", "NULL"}},
                kLocalCall),
          state("a zero local rate", kHome, kThere, "-1", "5", country, {{"local_rate", "0"}},
                kLocalCall),
          state("length within the bounds", kHome, kThere, kIntra, "2", bounded),
          state("too long", "121255500011", kThere, kMinute, "3", bounded),
          state("too short", "1212555", kThere, kMinute, "3", bounded),
          state("without prefix, within", "2125550001", kThere, kIntra, "2", bounded),
          state("without prefix, too long", "21255500011", kThere, kMinute, "3", bounded),
          state("a wrong length outranks local", "1212555", kThere, kMinute, "3", bounded, {},
                kLocalCall),
          state("one bound only", "1212555", kThere, kIntra, "2",
                e2e::merged(bounded, {{"prefix_max_length", "0"}})),
          state("bounds without a prefix", "1212555", kThere, kIntra, "2",
                e2e::merged(bounded, {{"jurisdiction_prefix", "NULL"}})),
      }};
}

Group switches_off() {
  const Columns country{{"jurisdiction_country_id", "1"}};
  return {"switches",
          {},
          "INSERT INTO jurisdiction_prefix VALUES (1,'1212',10,1);",
          {state("within a state", kHome, kThere, kMinute, "3"),
           state("local", kHome, kThere, kMinute, "3", country, {}, kLocalCall)}};
}

/// Columns that hold anything, and cells that hold commas.
Group odd_cells() {
  Group group{
      "cells",
      {},
      "ALTER TABLE rate ALTER rate TYPE text, ALTER seconds TYPE text, ALTER \"interval\" TYPE "
      "text; ALTER TABLE client_cdr ALTER start_time_of_date TYPE text,"
      " ALTER ingress_dnis_type TYPE text, ALTER ingress_rate_type TYPE text;",
      {
          lasting("digits before letters count", "60", {{"seconds", "'60s'"}, {"rate", "'0.1x'"}},
                  kMinute),
          lasting("an interval of letters", "60", {{"interval", "'six'"}}, kNothing),
          unrated("a rate of letters is zero", {{{"rate", "'free'"}}}, {}, false),
          unrated("a start of letters is long ago", {{}}, {{"start_time_of_date", "noon"}}, true),
          chosen("a number type of letters", {{}, {{"code", "'33'"}}}, 1,
                 {{"ingress_dnis_type", "x0"}, {"lrn_dnis", "3312345"}}),
          chosen("a rate type of letters", {{}}, 0, {{"ingress_rate_type", "local"}}),
          unrated("a number of letters", {{}}, {{"routing_digits", "anonymous"}}, true),
          unrated("a number with a plus", {{}}, {{"routing_digits", "+44201"}}, true),
      }};
  return group;
}

std::string unquoted(std::string text) {
  if (text == "NULL")
    return "";
  const bool quotes = text.find(',') != std::string::npos;
  std::erase(text, '\'');
  return quotes ? "\"" + text + "\"" : text;
}

/// What the call held before: all of it is replaced, or all but the rate stays.
const Call kBefore{{"ingress_client_rate", "9.0000000000"},
                   {"ingress_client_cost", "8.0000000000"},
                   {"ingress_client_bill_time", "7"},
                   {"ingress_bill_minutes", "6.0000000000"},
                   {"ingress_rate_id", "5"},
                   {"orig_code", "4"},
                   {"orig_code_name", "old"},
                   {"orig_country", "older"},
                   {"ingress_rate_effective_date", "3"},
                   {"egress_rate", "9.0000000000"},
                   {"egress_cost", "8.0000000000"},
                   {"egress_bill_time", "7"},
                   {"egress_bill_minutes", "6.0000000000"},
                   {"egress_rate_id", "5"},
                   {"term_code", "4"},
                   {"term_code_name", "old"},
                   {"term_country", "older"},
                   {"egress_rate_effective_date", "3"}};

Call call_of(const Group& group, size_t i) {
  const std::string id = std::to_string(i + 1);
  Call call = e2e::call(kBefore);
  for (const auto& [name, value] : group.prices[i].call)
    call[name] = value;
  call["session_id"] = group.name + id;
  call["ingress_id"] = call["egress_id"] = id;
  return call;
}

void submit(const Group& group) {
  Session portal = e2e::cluster().connect(group.name);
  std::string setup = group.setup, trunks;
  std::vector<Call> calls;
  for (size_t i = 0; i < group.prices.size(); i++) {
    const Price& p = group.prices[i];
    const std::string id = std::to_string(i + 1);
    setup += e2e::rate_table(id, p.table);
    if (p.decimals >= 0)
      setup += e2e::trunk(id, "t" + id, p.decimals, p.rounding);
    for (size_t record = 0; record < p.rates.size(); record++)
      setup +=
          e2e::rate(e2e::merged(p.rates[record], {{"rate_table_id", id},
                                                  {"rate_id", id + "0" + std::to_string(record)}}));
    calls.push_back(call_of(group, i));
    trunks += id + ",1," + id + ",0;";
  }
  portal.query(setup);
  e2e::store_calls(portal, "20260301", calls);
  for (Side side : {Side::ingress, Side::egress})
    e2e::rerate(
        portal,
        e2e::merged(group.job, {{std::string(e2e::name_of(side)) + "_trunk", "'" + trunks + "'"}}));
}

std::string price_columns(const Price& p, size_t i) {
  if (p.price == "-1")
    return p.price;
  const Columns record =
      e2e::merged({{"code", "44"}, {"code_name", "UK"}, {"country", "Britain"}}, p.rates[p.record]);
  return p.price + "|" + std::to_string(i + 1) + "0" + std::to_string(p.record) + "|" +
         unquoted(record.at("code")) + "|" + unquoted(record.at("code_name")) + "|" +
         unquoted(record.at("country")) + "|" + p.type + "|" + e2e::kMarch1;
}

TEST(Rerate, CallsArePricedToTheLastDigit) {
  const std::vector<Group> groups = {arithmetic(),    record_choice(), time_profiles(),
                                     kinds_of_rate(), switches_off(),  odd_cells()};
  std::vector<std::string> databases;
  for (const Group& group : groups)
    databases.push_back(group.name);
  auto daemon = e2e::daemon_for(databases);
  for (const Group& group : groups)
    submit(group);
  daemon->start();
  for (const Group& group : groups) {
    Session portal = e2e::cluster().connect(group.name);
    for (const char* id : {"1", "2"})
      ASSERT_EQ(e2e::rerated(portal, id), "0 4 ") << daemon->log();
  }
  const std::string log = daemon->log();
  for (const Group& group : groups) {
    Session portal = e2e::cluster().connect(group.name);
    for (size_t i = 0; i < group.prices.size(); i++) {
      const Price& p = group.prices[i];
      Call call = call_of(group, i);
      const std::string number =
          call.contains("ingress_dnis_type") && !call["ingress_dnis_type"].starts_with("0")
              ? call["lrn_dnis"]
              : call["routing_digits"];
      for (Side side : {Side::ingress, Side::egress}) {
        SCOPED_TRACE(group.name + ": " + p.rule + ", " + p.price + ", " + e2e::name_of(side));
        const std::string job = side == Side::ingress ? "1" : "2";
        e2e::expect_file(e2e::cdr_file(portal, job, std::to_string(i + 1)),
                         e2e::line(e2e::priced(call, side, price_columns(p, i))));
        const std::string note = "Rerate task " + job + " session_id " + call["session_id"] +
                                 " ani " + call["translation_ani"] + " bill_dnis " + number +
                                 " not match rate\n";
        EXPECT_EQ(support::count_of(log, note), p.noted ? 1 : 0) << note;
      }
    }
  }
}

TEST(Rerate, ACommaInACellShiftsTheCellsBehindIt) {
  auto daemon = e2e::daemon_for({"commas"});
  Session portal = e2e::cluster().connect("commas");
  portal.query(e2e::rate_table("1") + e2e::trunk("1", "t") + e2e::rate({{"rate_id", "5"}}) +
               e2e::rate({{"rate_id", "6"}, {"code", "'45'"}, {"code_name", "'Denmark, all'"}}));
  const Call late = e2e::call({{"static_route", "a,b"}, {"rpid_user", "r"}, {"timeout_type", "7"}});
  const Call early = e2e::call({{"origination_codec_list", "G711,G729"},
                                {"final_route_indication", "44"},
                                {"routing_digits", "66"},
                                {"call_duration", "7"}});
  const Call named = e2e::call({{"routing_digits", "451"}, {"conf_id", ""}});
  e2e::store_calls(portal, "20260301", {late, early, named});
  e2e::rerate(portal, {{"ingress_trunk", "'1,1,1,0'"}});
  daemon->start();
  EXPECT_EQ(e2e::rerated(portal, "1"), "0 4 ");

  Call first =
      e2e::priced(late, Side::ingress, std::string(kMinute) + "|5|44|UK|Britain|3|" + e2e::kMarch1);
  first["static_route"] = "\"a";
  first["dynamic_route"] = "b\"";
  first["rpid_user"] = "";
  first["timeout_type"] = "r,7";
  // Rated as a call of 66 s to 44: each value is read and written one column too late.
  const Call shifted{{"session_id", "s"},
                     {"start_time_of_date", "1772366400000000"},
                     {"origination_codec_list", "\"G711"},
                     {"origination_ingress_packets", "G729\""},
                     {"routing_digits", "44"},
                     {"call_duration", "66"},
                     {"pdd", "7"},
                     {"ingress_client_id", "1"},
                     {"egress_rate_table_id", "1"},
                     {"timeout_type", ","}};
  const Call second =
      e2e::priced(shifted, Side::ingress,
                  std::string("0.100000|0.110000|66|1.100000|5|44|UK|Britain|3|") + e2e::kMarch1);
  const Call third =
      e2e::priced(named, Side::ingress,
                  std::string(kMinute) + "|6|45|\"Denmark| all\",Britain|3|" + e2e::kMarch1);
  e2e::expect_file(e2e::cdr_file(portal, "1", "1"), e2e::lines({first, second, third}));
}

}  // namespace
