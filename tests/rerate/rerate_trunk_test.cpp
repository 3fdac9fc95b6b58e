#include "rerate/rerate_trunk.h"

#include <gtest/gtest.h>
#include <utility>

namespace {

TEST(trunk_text, is_read_item_by_item_up_to_the_first_that_is_none) {
  const std::string x62(62, 'x');
  const std::pair<std::string, std::string> cases[] = {
      {"", "whole"},
      {"12,1,7,0;13,0,,;14,2x,8,9", "[14 2  0][13 0  0][12 1 7 0]whole"},
      {"1,1,7,1790000000;", "[1 1 7 1790000000]whole"},
      {"1, 257,7,-5,x", "[1 1 7 -5]whole"},  // cut to 8 bits
      {"1,x,7,0", "[1 0  0]whole"},
      {x62 + "\u00e4,1," + x62 + "yz,0", "[" + x62 + " 1 " + x62 + "y 0]whole"},
      {"1,0,,;2,0,;3,0,,", "[1 0  0]"},
      {"1,0,,;;2,0,,", "[1 0  0]"},
      {",0,,", ""},
      {"1,,7,0", ""},
      {"1,1,,0", ""},
      {"1,1,7,", ""},
      {"1,0", ""}};
  for (const auto& [text, expected] : cases) {
    rerate_trunk_list trunks;
    trunks.emplace_back(call_side::egress).id = "7";
    const bool whole = rerate_trunk_text_parse(text, call_side::ingress, trunks);
    std::string shown;
    EXPECT_EQ(trunks.front().id, "7") << "stays in front";
    trunks.pop_front();
    for (const rerate_trunk& trunk : trunks) {
      shown += "[" + trunk.id + " " + std::to_string(trunk.enabled) + " " + trunk.rate_table_id +
               " " + std::to_string(trunk.rate_date) + "]";
      EXPECT_EQ(trunk.side, call_side::ingress);
    }
    EXPECT_EQ(shown + (whole ? "whole" : ""), expected) << text;
  }
}

}  // namespace
