#include "rerate/cdr_list.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace {

TEST(cdr_list_test, gives_lines_back_in_order) {
  cdr_list list;
  EXPECT_EQ(list.first(), nullptr);
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 3; ++i) {
      ASSERT_TRUE(list.add("line " + std::to_string(i)));
    }
    EXPECT_EQ(list.count(), 3U);
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(std::string(list.first()), "line " + std::to_string(i));
      list.drop_first();
    }
    EXPECT_EQ(list.first(), nullptr);
  }
  ASSERT_TRUE(list.add(std::string(3 << 20, 'x')));  // longer than a block
  ASSERT_TRUE(list.add("end"));
  list.drop_first();
  EXPECT_EQ(std::string(list.first()), "end");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

std::size_t resident_bytes() {
  long pages = 0;
  std::FILE* const file = std::fopen("/proc/self/statm", "re");
  EXPECT_EQ(std::fscanf(file, "%*d %ld", &pages), 1);
  (void)std::fclose(file);
  return static_cast<std::size_t>(pages) * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST(cdr_list_test, takes_a_tenth_more_than_its_lines_and_gives_all_back) {
  constexpr std::size_t kLines = 100'000;
  const std::string line(800, 'x');
  const std::size_t before = resident_bytes();
  cdr_list list;
  for (std::size_t i = 0; i < kLines; ++i) {
    ASSERT_TRUE(list.add(line));
  }
  EXPECT_LT(resident_bytes() - before, kLines * line.size() * 11 / 10);
  while (list.count() > kLines / 2) {
    list.drop_first();
  }
  EXPECT_LT(resident_bytes() - before, kLines * line.size() * 6 / 10);
  list.clear();
  EXPECT_LT(resident_bytes(), before + (std::size_t{4} << 20));
}

#endif

}  // namespace
