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
