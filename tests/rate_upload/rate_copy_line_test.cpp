#include "rate_upload/rate_copy_line.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <random>

#include "base/qvn_text.h"
#include "rate_upload/rate_file_line.h"

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

TEST(deck_line, numbers_are_those_of_strtol_and_strtod) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  const rate_header header = rate_header_parse("zone,rate");
  rate_date_reader dates(date_format::ymd_dash, 0);
  import_values values;
  std::string refusal;
  for (int i = 0; i < 200000; ++i) {
    // Now and then more digits than a double has range.
    std::string text(1 + random() % (i % 100 == 0 ? 400 : 24), '0');
    for (std::size_t place = random() % text.size(); place < text.size(); ++place)
      text[place] = static_cast<char>('0' + random() % 10);
    std::string rate = text;
    for (int points = i % 3; points > 0; points--)
      rate.insert(1 + random() % rate.size(), 1, '.');
    const std::string_view cells[] = {text, rate};
    ASSERT_TRUE(rate_line_check(header, cells, 1, dates, values, refusal)) << refusal;
    ASSERT_EQ(values.zone, static_cast<uint16_t>(strtol(text.c_str(), nullptr, 10))) << text;
    ASSERT_EQ(values.rate, static_cast<float>(strtod(rate.c_str(), nullptr))) << rate;
  }
}

}  // namespace
