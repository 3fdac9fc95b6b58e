#include "rerate/cdr_rater.h"

#include <gtest/gtest.h>
#include <map>
#include <vector>

#include "rerate/pricing_world.h"

namespace {

using changes = std::map<int, std::string>;

/// A record whose columns are c0, c1, ... but for those that the rating reads.
class cdr_rater_test : public testing::Test {
 protected:
  cdr_rater_test() {
    for (std::size_t i = 0; i < kCdrColumns; ++i) {
      texts_.push_back("c" + std::to_string(i));
    }
    set(kStartTimeOfDate, "1772359200999999");
    set(kRoutingDigits, "442071234567");
    set(kLrnDnis, "12125550100");
    set(kIngressDnisType, "");
    set(kCallDuration, "31");
    set(kIngressRateType, "");
    set(kEgressRateType, "");
    set(kTranslationAni, "33123456789");
    rate_node& rate = world_.add_rate("4420", "77", 0.5F);
    rate.setup_fee = 0.01F;
    world_.add_rate("1212", "88", 0.25F);
    world_.terms.rate_decimal = 6;
  }

  void set(cdr_column column, const std::string& text) { texts_[column] = text; }

  /// The columns that the rating changes, with their new texts.
  changes rate(call_side side, cdr_rater::outcome expected = cdr_rater::outcome::rated) {
    std::vector<std::string_view> columns(texts_.begin(), texts_.end());
    cdr_rater rater(side, world_.terms, 1772323200);
    EXPECT_EQ(rater.rate(columns), expected);
    changes found;
    for (std::size_t i = 0; i < columns.size(); ++i) {
      if (columns[i] != texts_[i]) {
        found[static_cast<int>(i)] = columns[i];
      }
    }
    return found;
  }

  pricing_world world_;
  std::vector<std::string> texts_;
};

// The positions are counted in the column list by hand: a shifted one is somebody else's money.
TEST_F(cdr_rater_test, rewrites_the_columns_of_its_side) {
  EXPECT_EQ(rate(call_side::ingress), (changes{{60, "0.500000"},
                                               {62, "31"},
                                               {64, "0.268333"},
                                               {76, "0.516667"},
                                               {78, "3"},
                                               {85, "77"},
                                               {87, "4420"},
                                               {88, "name of 4420"},
                                               {89, "country"},
                                               {93, "1772323200"}}));
  EXPECT_EQ(rate(call_side::egress), (changes{{67, "0.500000"},
                                              {68, "0.268333"},
                                              {69, "31"},
                                              {74, "0.516667"},
                                              {82, "3"},
                                              {86, "77"},
                                              {90, "4420"},
                                              {91, "name of 4420"},
                                              {92, "country"},
                                              {94, "1772323200"}}));
}

TEST_F(cdr_rater_test, call_without_a_price_changes_only_its_rate) {
  set(kRoutingDigits, "999");
  EXPECT_EQ(rate(call_side::ingress, cdr_rater::outcome::not_matched), (changes{{60, "-1"}}));
  EXPECT_EQ(rate(call_side::egress, cdr_rater::outcome::not_matched), (changes{{67, "-1"}}));
  set(kRoutingDigits, "39");
  rate_node& rate_of_39 = world_.add_rate("39", "99", 0.0F);
  EXPECT_EQ(rate(call_side::ingress, cdr_rater::outcome::zero_rate), (changes{{60, "-1"}}));
  rate_of_39.rate = kNoRate;
  EXPECT_EQ(rate(call_side::ingress, cdr_rater::outcome::not_matched), (changes{{60, "-1"}}));
  rate_of_39.rate = 1e-6F;
  EXPECT_EQ(rate(call_side::ingress)[60], "0.000001");
}

TEST_F(cdr_rater_test, ingress_dnis_type_chooses_the_billed_number_on_both_sides) {
  for (const auto& [type, code] : std::map<std::string, std::string>{
           {"", "4420"}, {"0", "4420"}, {"01", "4420"}, {"1", "1212"}, {"x", "1212"}}) {
    set(kIngressDnisType, type);
    EXPECT_EQ(rate(call_side::ingress)[87], code) << type;
    EXPECT_EQ(rate(call_side::egress)[90], code) << type;
  }
}

TEST_F(cdr_rater_test, each_side_reads_its_own_rate_type) {
  world_.terms.local_rates = true;
  set(kRoutingDigits, "39");
  world_.add_rate("39", "99", 1.0F).local_rate = 0.125F;
  set(kEgressRateType, "5");
  EXPECT_EQ(rate(call_side::ingress)[60], "1.000000");
  EXPECT_EQ(rate(call_side::egress)[67], "0.125000");
}

TEST_F(cdr_rater_test, letters_for_numbers_and_empty_columns_are_zeros) {
  set(kStartTimeOfDate, "yesterday");
  set(kCallDuration, "");
  EXPECT_EQ(rate(call_side::ingress)[64], "0.000000");
  texts_.assign(kCdrColumns, "");
  EXPECT_EQ(rate(call_side::ingress, cdr_rater::outcome::not_matched), (changes{{60, "-1"}}));
}

TEST_F(cdr_rater_test, absent_texts_of_the_rate_empty_their_columns) {
  world_.add_rate("44207", "", 1.0F).code_name = nullptr;
  const changes found = rate(call_side::ingress);
  EXPECT_EQ(found.at(85), "");
  EXPECT_EQ(found.at(88), "");
}

TEST(cdr_line, joins_columns_of_every_length_and_writes_null_for_empty_ones) {
  std::vector<std::string> texts = {""};
  std::string expected = "before\nNULL";
  for (std::size_t length = 1; length <= 40; ++length) {
    texts.emplace_back(length, static_cast<char>('a' + length % 26));
    expected += "?" + texts.back();
  }
  const std::vector<std::string_view> columns(texts.begin(), texts.end());
  std::string line = "before\n";
  cdr_line_append(line, columns);
  EXPECT_EQ(line, expected + "\n");
}

}  // namespace
