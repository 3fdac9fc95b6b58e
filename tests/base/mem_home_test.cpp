#include <algorithm>
#include <gtest/gtest.h>

#include "base/qvn_mem_home.h"

namespace {

TEST(MemHome, BlocksAreZeroedAndRegisteredAtTheFront) {
  qvn_mem_home home = nullptr;
  EXPECT_EQ(qvn_mem_home_strdup(&home, nullptr), nullptr);
  EXPECT_EQ(qvn_mem_home_strdup(&home, ""), nullptr);
  EXPECT_EQ(home, nullptr);
  auto* first = static_cast<char*>(qvn_mem_home_variable_alloc(&home, 1000));
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(std::count(first, first + 1000, '\0'), 1000);
  char* second = qvn_mem_home_strdup(&home, "second");
  EXPECT_STREQ(second, "second");
  EXPECT_EQ(home->block, second);
  EXPECT_EQ(home->next->block, first);
  EXPECT_EQ(home->next->next, nullptr);
  EXPECT_EQ(qvn_mem_home_destroy(&home), 0);
  EXPECT_EQ(home, nullptr);
}

}  // namespace
