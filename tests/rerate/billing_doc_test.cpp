// The worked examples of docs/billing.md, priced by the daemon's own code.
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "base/qvn_time.h"
#include "rerate/call_money.h"
#include "rerate/pricing_world.h"
#include "support/page.h"
#include "support/temp_dir.h"

namespace {

using row = support::TableRow;

/// The rows of the table whose first column has that heading.
std::vector<row> table(const std::string& heading) {
  for (support::Section& section : support::sections(support::read_file(QVN_BILLING_DOC)))
    for (support::Table& one : section.tables)
      if (one.headings[0] == heading)
        return one.rows;
  ADD_FAILURE() << heading;
  return {};
}

int64_t utc(const std::string& text) {
  tm date{};
  EXPECT_NE(strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &date), nullptr) << text;
  return timegm(&date);
}

std::string money(float amount) {
  char text[kMoneyTextSize];
  return std::string(call_money_text(text, amount));
}

uint16_t number(const std::string& text) {
  return static_cast<uint16_t>(std::strtol(text.c_str(), nullptr, 10));
}

float price(const std::string& text) {
  return static_cast<float>(std::strtod(text.c_str(), nullptr));
}

TEST(billing_doc, names_the_rate_that_applies) {
  pricing_world world;
  for (row& profile : table("time profile")) {
    time_profile_node& node = world.add_time_profile(profile["time profile"]);
    node.type = number(profile["type"]);
    node.start_week = number(profile["first weekday"]);
    node.end_week = number(profile["last weekday"]);
    node.time_zone = get_timezone_from_str(profile["time zone"].c_str());
    ASSERT_EQ(qvn_strtime(profile["from"].c_str(), &node.start_hour, &node.start_minute,
                          &node.start_second),
              0);
    ASSERT_EQ(
        qvn_strtime(profile["to"].c_str(), &node.end_hour, &node.end_minute, &node.end_second), 0);
  }
  for (row& rate : table("rate")) {
    world.add_rate(rate["code"], rate["rate"], 1.0F, utc(rate["begins"]), rate["time profile"])
        .end_date = rate["ends"].empty() ? 0 : utc(rate["ends"]);
  }
  for (row& call : table("billed number")) {
    const rate_node* const rate = choose_record(
        world.terms, rp_hash_search(&world.terms.codes, call["billed number"].c_str()),
        utc(call["call begins"]));
    EXPECT_EQ(rate ? std::string(rate->rate_id) : "none", call["rate"]) << call["why"];
  }
}

TEST(billing_doc, names_the_price_of_the_rate) {
  pricing_world world;
  world.add_jurisdiction("1212", "1", "New York");
  world.add_jurisdiction("1213", "2", "California");
  world.add_jurisdiction("1310", "3", "California");
  world.terms.jurisdiction = {"1", 11, 11, 10, 10};
  world.terms.local_rates = true;
  rate_node& rate = world.add_rate("1", "", 0.1F);
  rate.inter_rate = 0.2F;
  rate.intra_rate = 0.3F;
  rate.local_rate = 0.4F;
  for (row& call : table("calling number")) {
    const rate_choice choice = choose_rate(world.terms, rate,
                                           {.billed_number = call["billed number"],
                                            .ani = call["calling number"],
                                            .rate_type = number(call["call's rate type"])});
    EXPECT_EQ(money(choice.rate), call["price"]) << call["why"];
    EXPECT_EQ(choice.rate_type, number(call["rate type"])) << call["why"];
  }
}

TEST(billing_doc, works_out_time_and_cost) {
  for (row& call : table("call seconds")) {
    rate_node rate{};
    rate.min_time = number(call["minimum"]);
    rate.grace_time = number(call["grace"]);
    rate.interval = number(call["interval"]);
    rate.seconds = number(call["seconds"]);
    rate.setup_fee = price(call["setup fee"]);
    pricing_terms terms;
    terms.rate_decimal = 6;
    const int64_t duration = std::strtol(call["call seconds"].c_str(), nullptr, 10);
    const call_charge charge = charge_call(terms, rate, price(call["price"]), duration);
    EXPECT_EQ(std::to_string(charge.bill_time), call["billed seconds"]) << call["why"];
    EXPECT_EQ(money(charge.minutes), call["minutes"]) << call["why"];
    EXPECT_EQ(money(charge.cost), call["cost"]) << call["why"];
  }
}

TEST(billing_doc, rounds_costs) {
  for (row& example : table("cost")) {
    for (const int rounding : {0, 1, 2}) {
      const auto decimals = static_cast<uint8_t>(number(example["decimals"]));
      EXPECT_EQ(money(round_cost(price(example["cost"]), decimals, static_cast<uint8_t>(rounding))),
                example["rounding " + std::to_string(rounding)])
          << example["cost"];
    }
  }
}

}  // namespace
