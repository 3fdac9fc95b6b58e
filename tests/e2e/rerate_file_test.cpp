// What reratings charge: every call of these tables has a trunk and a rate table of its own and is
// rated twice, as a call that came from the trunk and as one that went to it.
//
// scripts/money prices all that is regular once more; here are the odd cases, with figures worked
// out by hand. Columns of a price: rate, cost, seconds and minutes billed.
#include <algorithm>
#include <gtest/gtest.h>
#include <sstream>

#include "e2e/rerate_world.h"

namespace {

using e2e::Call;
using e2e::Columns;
using e2e::Side;
using support::Session;

/// A call and its price; columns as "name=value ...".
struct Price {
  std::string rule;
  std::string rates;  ///< columns of the rates of its rate table, separated by ";"
  std::string call;
  std::string price;           ///< "-1" with " noted" when the log tells that no rate was found
  size_t record = 0;           ///< which of the rates is used
  std::string type = "3";      ///< rate type written
  std::string table = "";      ///< columns of the rate table
  std::string decimals = "6";  ///< of the trunk; empty: the trunk has no settings
  std::string rounding = "1";
};

/// One database, rated with the same switches.
struct Group {
  std::string name;
  std::string job;
  std::string setup;  ///< SQL
  std::vector<Price> prices;
};

const char* const kMinute = "0.100000|0.100000|60|1.000000";
const char* const kNothing = "0.100000|0.000000|0|0.000000";

std::vector<Price> arithmetic() {
  return {
      {"a minute", "", "", kMinute},
      {"the minimum is no multiple of the interval", "min_time=31", "call_duration=7",
       "0.100000|0.051667|31|0.516667"},
      {"grace is free of the fee too but has minutes", "grace_time=10 setup_fee=0.25",
       "call_duration=9", "0.100000|0.000000|12|0.200000"},
      {"no seconds", "seconds=NULL", "", kNothing},
      {"an interval of 300 is 44", "interval=300", "", "0.100000|0.146667|88|1.466667"},
      {"billed seconds have 16 bits", "", "call_duration=65537", "0.100000|0.003333|2|0.033333"},
      {"at the tolerance", "rate=0.000001", "", "0.000001|0.000001|60|1.000000"},
      {"below the tolerance", "rate=0.0000009", "", "-1"},
      {"a zero rate", "rate=0 setup_fee=1", "", "-1"},
      {"a negative rate", "rate=-0.5", "", "-1"},
      {"a rate of minus one is like none", "rate=-1", "", "-1 noted"},
      {"no rate", "rate=NULL", "", "-1 noted"},
  };
}

struct Rounding {
  const char *rate, *decimals, *rounding, *written_and_cost;
};

const Rounding kRoundings[] = {
    {"0.123446", "4", "0", "0.123446|0.123500"},
    {"0.123446", "4", "2", "0.123446|0.123400"},
    {"0.123456", "4", "3", "0.123456|0.123400"},
    {"0.99999", "2", "0", "0.999990|1.000000"},
    {"1.9", "0", "0", "1.900000|1.000000"},
    {"1.9", "", "", "1.900000|1.000000"},
    {"0.123456", "7", "2", "0.123456|0.123456"},
    {"0.123456", "258", "257", "0.123456|0.120000"},
    // Single precision holds 16.7 as 16.700001, whose last digit rounds it up.
    {"16.7", "2", "0", "16.700001|16.709999"},
};

Group roundings() {
  Group group{"roundings", "", "", {}};
  for (const Rounding& r : kRoundings)
    group.prices.push_back(
        {.rule = std::string(r.rate) + " to " + r.decimals + " decimals, " + r.rounding,
         .rates = std::string("rate=") + r.rate,
         .call = "",
         .price = std::string(r.written_and_cost) + "|60|1.000000",
         .decimals = r.decimals,
         .rounding = r.rounding});
  return group;
}

// Prices are the same; what tells the records apart is their ids.
std::vector<Price> record_choice() {
  return {
      {"the oldest", "effective_date='2025-01-01';effective_date='2026-02-01'", "", kMinute, 0},
      {"of equal dates the one loaded last", ";", "", kMinute, 1},
      {"in force a second later", "effective_date='2026-03-01T12:00:01Z';code='4'", "", kMinute, 1},
      {"microseconds are cut", "effective_date='2026-03-01T12:00:00Z';code='4'",
       "start_time_of_date=1772366399999999", kMinute, 1},
      {"in force until now", "end_date='2026-03-01T12:00:00Z';code='4'", "", kMinute, 0},
      {"ended at the requested date", "end_date='2026-03-01T00:00:00Z';code='4'",
       "start_time_of_date=1772323200000000", kMinute, 1},
      {"more than the number", ";code='4420123456789'", "", kMinute, 0},
      {"over a gap of many digits", "code='44201234' end_date='2026-03-01T06:00:00Z';code='4'", "",
       kMinute, 1},
      {"no names", "code_name=NULL country=''", "", kMinute},
      {"a country with a comma keeps its quotes", "country='Britain,Great'", "", kMinute},
      {"routed number by type 0", ";code='33'", "ingress_dnis_type=0 lrn_dnis=3312345", kMinute, 0},
      {"the egress side's own type is not looked at", ";code='33'",
       "egress_dnis_type=1 lrn_dnis=3312345", kMinute, 0},
      {"no ported number", "", "ingress_dnis_type=1", "-1 noted"},
      {"no number", "", "routing_digits=", "-1 noted"},
      {"a rate without a code is no default", "code=''", "", "-1 noted"},
      {"not yet in force", "effective_date='2026-03-01T12:00:01Z'", "", "-1 noted"},
  };
}

/// Whether a rate with the profile applies to a call that starts at this second of Sunday.
struct Profile {
  const char* rule;
  const char* columns;
  int hour, minute, second;
  bool applies;
};

const Profile kProfiles[] = {
    {"Sunday is 7", "1,7,7,'00:00:00','23:59:59',''", 12, 0, 0, true},
    {"Sunday is not 0", "1,0,6,'00:00:00','23:59:59',NULL", 12, 0, 0, false},
    {"east, already Monday", "1,1,1,'00:00:00','02:00:00','+0200'", 23, 0, 0, true},
    {"east, still Sunday", "1,7,7,'23:00:00','23:59:59','+0200'", 21, 30, 0, true},
    {"west, still Saturday", "1,6,6,'22:00:00','23:30:00','-0200'", 1, 0, 0, true},
    {"minus four hours are none", "2,1,1,'12:00:00','12:30:00','-0400'", 12, 0, 0, true},
    {"half hours are none", "2,1,1,'12:00:00','12:30:00','+0530'", 12, 0, 0, true},
    {"no wrap, before midnight", "2,1,7,'22:00:00','06:30:00',''", 23, 0, 0, false},
    {"no wrap, after midnight", "2,1,7,'22:00:00','06:30:00',''", 3, 0, 0, false},
    {"but the last hour", "2,1,7,'22:00:00','06:30:00',''", 6, 30, 0, true},
    {"and not beyond", "2,1,7,'22:00:00','06:30:00',''", 6, 30, 1, false},
    {"too late within one hour", "2,1,7,'12:30:00','12:45:00',''", 12, 45, 1, false},
    {"no hours", "2,1,7,NULL,NULL,''", 12, 0, 0, false},
};

Group time_profiles() {
  Group group{"profiles", "", "", {}};
  for (const Profile& p : kProfiles) {
    const std::string id = std::to_string(group.prices.size() + 1);
    group.setup +=
        "INSERT INTO time_profile (time_profile_id, type, start_week, end_week, start_time,"
        " end_time, time_zone) VALUES (" +
        id + "," + p.columns + ");";
    const long start = 1772323200 + p.hour * 3600 + p.minute * 60 + p.second;
    group.prices.push_back({p.rule, "time_profile_id=" + id + ";code='4'",
                            "start_time_of_date=" + std::to_string(start) + "000000", kMinute,
                            p.applies ? 0U : 1U});
  }
  group.prices.push_back({"unknown", "time_profile_id=999;code='4'", "", kMinute, 1});
  return group;
}

/// A call between two numbers; its rates are 0.1, between states 0.2, within one 0.3, local 0.4,
/// with the columns of `rate` in their place.
struct StateCall {
  const char *rule, *caller, *called, *price, *type;
  std::string table = "";
  const char* rate = "";
  const char* call = "";
};

const char* const kInter = "0.200000|0.200000|60|1.000000";
const char* const kIntra = "0.300000|0.300000|60|1.000000";
const char* const kLocal = "0.400000|0.400000|60|1.000000";
const char* const kHome = "12125550001";
const char* const kThere = "12125550002";
const char* const kUs = "jurisdiction_country_id=1";
const char* const kLocalCall = "ingress_rate_type=5 egress_rate_type=5";
std::vector<StateCall> states() {
  // Of prefix_max_length count 8 bits, 11.
  const std::string lengths =
      "jurisdiction_country_id=1 jurisdiction_prefix='1' prefix_min_length=11 prefix_max_length=267"
      " noprefix_min_length=10 noprefix_max_length=10";
  return {
      {"both numbers without their 1", "2125550001", "2125550002", kIntra, "2", kUs},
      {"between states", "12135550001", kThere, kInter, "1", kUs},
      {"caller empty", "", kThere, kMinute, "3", kUs},
      {"billed by the ported number", kHome, kThere, kInter, "1", kUs, "",
       "ingress_dnis_type=2 lrn_dnis=12135550002"},
      {"no rate", "12135550001", kThere, "-1 noted", "", kUs, "inter_rate=NULL"},
      {"a zero rate", "12135550001", kThere, "-1", "", kUs, "inter_rate=0"},
      {"another country's prefixes", kHome, kThere, kIntra, "2", "jurisdiction_country_id=2"},
      {"the empty prefix counts as found", "9995550001", kThere, kInter, "1",
       "jurisdiction_country_id=3"},
      {"of one prefix the first id in byte order", "12145550001", "12146660001", kIntra, "2", kUs},
      {"local", kHome, kThere, kLocal, "5", kUs, "", kLocalCall},
      {"no local rate", kHome, kThere, kIntra, "2", kUs, "local_rate=NULL", kLocalCall},
      {"too long", "121255500011", kThere, kMinute, "3", lengths},
      {"without prefix, too long", "21255500011", kThere, kMinute, "3", lengths},
      {"a wrong length outranks local", "1212555", kThere, kMinute, "3", lengths, "", kLocalCall},
      {"one bound only", "1212555", kThere, kIntra, "2", lengths + " prefix_max_length=0"},
      {"no prefix to bound", "1212555", kThere, kIntra, "2", lengths + " jurisdiction_prefix=NULL"},
  };
}

std::vector<StateCall> switched_off() {
  return {
      {"within a state", kHome, kThere, kMinute, "3", kUs},
      {"local", kHome, kThere, kMinute, "3", kUs, "", kLocalCall},
  };
}

Group state_calls(const std::string& name, const std::string& job,
                  const std::vector<StateCall>& calls) {
  Group group{
      name,
      job,
      "INSERT INTO jurisdiction_prefix VALUES (1,'1212',10,1), (2,'1213',11,1), (3,'1214',12,1),"
      " (20,'1214',13,1), (4,'12145',13,1), (5,'',20,3), (6,'1212',21,3), (7,'1212',30,2);",
      {}};
  for (const StateCall& c : calls)
    group.prices.push_back(
        {c.rule,
         std::string("inter_rate=0.2 intra_rate=0.3 local_rate=0.4 code='") + c.called[0] + "' " +
             c.rate,
         std::string("translation_ani=") + c.caller + " routing_digits=" + c.called + " " + c.call,
         c.price, 0, c.type, c.table});
  return group;
}

/// Columns of which the portal makes texts.
const char* const kTexts =
    "ALTER TABLE rate ALTER rate TYPE text, ALTER seconds TYPE text, ALTER \"interval\" TYPE text;"
    "ALTER TABLE client_cdr ALTER start_time_of_date TYPE text, ALTER ingress_dnis_type TYPE text,"
    " ALTER ingress_rate_type TYPE text;";

std::vector<Price> letters() {
  return {
      {"digits before letters count", "seconds='60s' rate='0.1x'", "", kMinute},
      {"an interval of letters", "interval='six'", "", kNothing},
      {"a rate of letters is zero", "rate='free'", "", "-1"},
      {"a start of letters is long ago", "", "start_time_of_date=noon", "-1 noted"},
      {"a number type", ";code='33'", "ingress_dnis_type=x0 lrn_dnis=3312345", kMinute, 1},
      {"a rate type of letters", "", "ingress_rate_type=local", kMinute},
      {"a number of letters", "", "routing_digits=ano\x1bnymous", "-1 noted"},
      {"a number with a plus", "", "routing_digits=+44201", "-1 noted"},
  };
}

/// What every call held before: all of it is replaced, or all but the rate stays.
const char* const kBefore =
    "ingress_client_rate=9.0000000000 ingress_client_cost=8.0000000000 ingress_client_bill_time=7"
    " ingress_bill_minutes=6.0000000000 ingress_rate_id=5 orig_code=4 orig_code_name=old"
    " orig_country=older ingress_rate_effective_date=3 egress_rate=9.0000000000"
    " egress_cost=8.0000000000 egress_bill_time=7 egress_bill_minutes=6.0000000000"
    " egress_rate_id=5 term_code=4 term_code_name=old term_country=older"
    " egress_rate_effective_date=3 ";

Call call_of(const Group& group, size_t i) {
  const std::string id = std::to_string(i + 1);
  return e2e::call(kBefore + group.prices[i].call + " session_id=" + group.name + id +
                   " ingress_id=" + id + " egress_id=" + id);
}

/// Columns of the rates of a price.
std::vector<std::string> records(const std::string& rates) {
  std::vector<std::string> all;
  std::istringstream in(rates + ";");
  for (std::string record; std::getline(in, record, ';');)
    all.push_back(record);
  return all;
}

void submit(const Group& group) {
  Session portal = e2e::cluster().connect(group.name);
  std::string setup = group.setup, trunks;
  std::vector<Call> calls;
  for (const Price& p : group.prices) {
    const std::string id = std::to_string(calls.size() + 1);
    setup += e2e::rate_table(id, p.table);
    if (!p.decimals.empty())
      setup += e2e::trunk(id, "t" + id, p.decimals, p.rounding);
    char digit = '0';
    for (const std::string& record : records(p.rates))
      // NOLINTNEXTLINE(performance-inefficient-string-concatenation)
      setup += e2e::rate(record + " rate_table_id=" + id + " rate_id=" + id + "0" + digit++);
    calls.push_back(call_of(group, calls.size()));
    // NOLINTNEXTLINE(performance-inefficient-string-concatenation)
    trunks += id + ",1," + id + ",0;";
  }
  portal.query(setup);
  e2e::store_calls(portal, "20260301", calls);
  e2e::rerate(portal, group.job + " ingress_trunk='" + trunks + "'");
  e2e::rerate(portal, group.job + " egress_trunk='" + trunks + "'");
}

/// The columns that the price writes.
std::string price_columns(const Price& p, size_t i) {
  if (p.price.starts_with("-1"))
    return "-1";
  const Columns record =
      e2e::columns("code='44' code_name='UK' country='Britain' " + records(p.rates)[p.record]);
  std::string text = p.price + "|" + std::to_string(i + 1) + "0" + std::to_string(p.record);
  for (const char* name : {"code", "code_name", "country"}) {
    std::string value = record.at(name) == "NULL" ? "" : record.at(name);
    std::erase(value, '\'');
    text += "|" + (value.find(',') == std::string::npos ? value : "\"" + value + "\"");
  }
  return text + "|" + p.type + "|" + e2e::kMarch1;
}

void check(Session& portal, const Group& group, size_t i, const std::string& log) {
  const Price& p = group.prices[i];
  Call call = call_of(group, i);
  const bool ported =
      call.contains("ingress_dnis_type") && !call["ingress_dnis_type"].starts_with("0");
  for (Side side : {Side::ingress, Side::egress}) {
    SCOPED_TRACE(group.name + ": " + p.rule + (side == Side::ingress ? ", ingress" : ", egress"));
    const std::string job = side == Side::ingress ? "1" : "2";
    e2e::expect_file(e2e::cdr_file(portal, job, std::to_string(i + 1)),
                     e2e::line(e2e::priced(call, side, price_columns(p, i))));
    std::string note = "Rerate task " + job + " session_id " + call["session_id"] + " ani " +
                       call["translation_ani"] + " bill_dnis " +
                       call[ported ? "lrn_dnis" : "routing_digits"] + " not match rate\n";
    std::ranges::replace(note, '\x1b', '?');
    EXPECT_EQ(support::count_of(log, note), p.price.ends_with("noted") ? 1 : 0) << note;
  }
}

TEST(RerateFile, CallsArePricedToTheLastDigit) {
  const std::vector<Group> groups = {
      {"arithmetic", "", "", arithmetic()},
      roundings(),
      {"records", "", "", record_choice()},
      time_profiles(),
      state_calls("states", "update_us_jurisdiction=1 update_local_rate=1", states()),
      state_calls("switched_off", "", switched_off()),
      {"letters", "", kTexts, letters()}};
  auto daemon = e2e::daemon_for_each(groups);
  for (const Group& group : groups)
    submit(group);
  daemon->start();
  for (const Group& group : groups) {
    Session portal = e2e::cluster().connect(group.name);
    for (const char* id : {"1", "2"})
      ASSERT_EQ(e2e::rerated(portal, id), "0 4 ") << group.name;
  }
  // The log is written behind the jobs' backs.
  EXPECT_TRUE(daemon->wait_log("have been completed", 2 * static_cast<int>(groups.size())));
  const std::string log = daemon->log();
  for (const Group& group : groups) {
    Session portal = e2e::cluster().connect(group.name);
    for (size_t i = 0; i < group.prices.size(); i++)
      check(portal, group, i, log);
  }
}

TEST(RerateFile, ACommaInACellShiftsTheCellsBehindIt) {
  auto daemon = e2e::daemon_for({"commas"});
  Session portal = e2e::cluster().connect("commas");
  portal.query(e2e::rate_table("1") + e2e::trunk("1", "t") + e2e::rate("rate_id=5") +
               e2e::rate("rate_id=6 code='45' code_name='Denmark,all'"));
  const Call late = e2e::call("static_route=a,b rpid_user=r timeout_type=7");
  const Call early = e2e::call(
      "origination_codec_list=G711,G729 final_route_indication=44 routing_digits=66"
      " call_duration=7");
  const Call named = e2e::call("routing_digits=451 conf_id=");
  e2e::store_calls(portal, "20260301", {late, early, named});
  e2e::rerate(portal, "ingress_trunk='1,1,1,0'");
  daemon->start();
  EXPECT_EQ(e2e::rerated(portal, "1"), "0 4 ");

  const auto price = [](const Call& call, const std::string& columns) {
    return e2e::priced(call, Side::ingress, columns + "|3|" + e2e::kMarch1);
  };
  Call first = price(late, std::string(kMinute) + "|5|44|UK|Britain");
  first["static_route"] = "\"a";
  first["dynamic_route"] = "b\"";
  first["rpid_user"] = "";
  first["timeout_type"] = "r,7";
  // Rated as a call of 66 s to 44: each value is read and written one column too late.
  const Call second =
      price(e2e::columns("session_id=s start_time_of_date=1772366400000000 routing_digits=44"
                         " origination_codec_list=\"G711 origination_ingress_packets=G729\""
                         " call_duration=66 pdd=7 ingress_client_id=1 egress_rate_table_id=1"
                         " timeout_type=,"),
            "0.100000|0.110000|66|1.100000|5|44|UK|Britain");
  const Call third = price(named, std::string(kMinute) + "|6|45|\"Denmark|all\",Britain");
  e2e::expect_file(e2e::cdr_file(portal, "1", "1"), e2e::lines({first, second, third}));
}

}  // namespace
