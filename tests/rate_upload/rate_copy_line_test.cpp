#include "rate_upload/rate_copy_line.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <random>

#include "base/qvn_text.h"

namespace {

std::string money(float amount) {
  std::string text;
  append_money(text, amount);
  return text;
}

TEST(copy_line, absent_values_are_null_and_increments_get_their_defaults) {
  import_values values;
  values.code = "4420";
  values.effective = {"2024-01-01 00:00:00+00", 1704067200};
  import_list list;
  ASSERT_TRUE(list.push(values));
  std::string line;
  rate_copy_line_append(line, "7", *list.first());
  EXPECT_EQ(line,
            "7,4420,NULL,NULL,NULL,NULL,NULL,NULL,0.000000,2024-01-01 00:00:00+00,NULL,0,0,0,60,6,"
            "0\n");
}

TEST(copy_line, every_value_stands_in_its_column) {
  import_values values{.zone = 1,
                       .interval = 2,
                       .seconds = 3,
                       .rate_type = 4,
                       .min_time = 5,
                       .grace_time = 65535,
                       .code = "44",
                       .code_name = "London",
                       .country = "UK",
                       .effective = {"e", 1},
                       .end = {"x", 2},
                       .rate = 0.1F,
                       .intra_rate = 0.2F,
                       .inter_rate = 0.3F,
                       .local_rate = 0.0F,
                       .setup_fee = 1.5F};
  import_list list;
  ASSERT_TRUE(list.push(values));
  std::string line;
  rate_copy_line_append(line, "7", *list.first());
  EXPECT_EQ(line,
            "7,44,London,UK,0.100000,0.200000,0.300000,0.000000,1.500000,e,x,65535,5,4,3,2,1\n");
}

/// Money is narrowed to single precision before it is printed: these are not the deck's digits.
TEST(copy_line, money_shows_the_single_precision_value) {
  EXPECT_EQ(money(123.456789F), "123.456787");
  EXPECT_EQ(money(16777217.0F), "16777216.000000");
}

TEST(copy_line, money_has_the_bytes_of_printf) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  for (int i = 0; i < 200000; ++i) {
    const auto bits = static_cast<uint32_t>(random());
    float amount;
    std::memcpy(&amount, &bits, sizeof amount);
    if (std::isnan(amount)) {
      continue;
    }
    ASSERT_EQ(money(amount), qvn_format("%f", static_cast<double>(amount)));
  }
  ASSERT_EQ(money(std::numeric_limits<float>::infinity()), "inf");
}

}  // namespace
