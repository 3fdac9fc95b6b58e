#include "rate_upload/rate_copy_line.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <random>

#include "base/qvn_text.h"
#include "rate_upload/deck_cells.h"

namespace {

/// A deck's number is read as the C library would read it, narrowed, and written as "%f" would.
TEST(deck_numbers, are_those_of_strtol_strtod_and_printf) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  const rate_header header = rate_header_parse("zone,rate");
  rate_date_reader dates(date_format::ymd_dash, 0);
  import_values values;
  std::string refusal;
  for (int i = 0; i < 200000; ++i) {
    // Now and then more digits than a double has range.
    std::string digits(1 + random() % (i % 100 == 0 ? 400 : 24), '0');
    for (std::size_t place = random() % digits.size(); place < digits.size(); ++place)
      digits[place] = static_cast<char>('0' + random() % 10);
    std::string rate = digits;
    for (int points = i % 3; points > 0; points--)
      rate.insert(1 + random() % rate.size(), 1, '.');
    const std::string_view cells[] = {digits, rate};
    ASSERT_TRUE(rate_line_check(header, cells, 1, dates, values, refusal)) << refusal;
    ASSERT_EQ(values.zone, static_cast<uint16_t>(strtol(digits.c_str(), nullptr, 10))) << digits;
    ASSERT_EQ(values.rate, static_cast<float>(strtod(rate.c_str(), nullptr))) << rate;
    std::string money;
    append_money(money, values.rate);
    ASSERT_EQ(money, qvn_format("%f", static_cast<double>(values.rate)));
  }
}

}  // namespace
