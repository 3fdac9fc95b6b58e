#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

#include "base/failing_new.h"
#include "base/qvn_mem_home.h"

namespace {

TEST(MemHome, BlocksAreZeroedAndRegisteredAtTheFront) {
  qvn_mem_home home = nullptr;
  auto* first = static_cast<char*>(qvn_mem_home_variable_alloc(&home, 1000));
  ASSERT_NE(first, nullptr);
  EXPECT_TRUE(std::all_of(first, first + 1000, [](char c) { return c == 0; }));
  char* second = qvn_mem_home_strdup(&home, "second");
  EXPECT_STREQ(second, "second");
  EXPECT_EQ(home->block, second);
  EXPECT_EQ(home->next->block, first);
  EXPECT_EQ(home->next->next, nullptr);
  EXPECT_EQ(qvn_mem_home_destroy(&home), 0);
  EXPECT_EQ(home, nullptr);
  EXPECT_EQ(qvn_mem_home_destroy(&home), 0);
}

TEST(MemHome, AbsentAndEmptyTextsAreNotCopied) {
  qvn_mem_home home = nullptr;
  EXPECT_EQ(qvn_mem_home_strdup(&home, nullptr), nullptr);
  EXPECT_EQ(qvn_mem_home_strdup(&home, ""), nullptr);
  EXPECT_EQ(home, nullptr);
}

// Block and node: whichever fails, the home stays as it was and the other one is not lost.
TEST(MemHome, ShortageOfMemoryLeavesTheHomeAsItWas) {
  qvn_mem_home home = nullptr;
  for (const int nth : {1, 2}) {
    fail_nothrow_new(nth);
    EXPECT_EQ(qvn_mem_home_strdup(&home, "text"), nullptr);
    EXPECT_TRUE(nothrow_new_has_failed());
    EXPECT_EQ(home, nullptr);
  }
}

}  // namespace
