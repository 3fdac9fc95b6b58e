#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "db/qvn_db.h"
#include "db/qvn_task.h"

namespace {

struct row_case {
  const char* name;
  std::string row;
  std::vector<std::string> fields;  // "stale" where the row does not reach
};

TEST(copy_row, is_split_at_every_comma_and_nothing_else) {
  const row_case cases[] = {
      {"empty quotes become empty", "a,\"\",c\n", {"a", "", "c"}},
      {"the last field keeps further commas", "a,b,c,d\n", {"a", "b", "c,d"}},
      {"a short row keeps its line feed and leaves the rest", "a,b\n", {"a", "b\n", "stale"}},
      {"quotes stay, also around a comma", "\"x,y\",b\n", {"\"x", "y\"", "b"}},
      {"empty fields are empty", ",,\n", {"", "", ""}},
      {"last empty quotes become empty", "a,b,\"\"\n", {"a", "b", ""}},
      {"last empty quotes of a short row stay", "a,\"\"\n", {"a", "\"\"\n", "stale"}},
      {"no line feed", "a,b,c", {"a", "b", "c"}},
      {"nothing at all", "", {"", "stale", "stale"}},
  };
  for (const row_case& test : cases) {
    SCOPED_TRACE(test.name);
    std::string row = test.row;
    char stale[] = "stale";
    std::vector<char*> fields(test.fields.size(), stale);
    pg_row_csv_parse(row.data(), fields);
    EXPECT_EQ(std::vector<std::string>(fields.begin(), fields.end()), test.fields);
  }
}

/// Rows of every length around the eight bytes that are looked at together, against the plain rule.
TEST(copy_row, is_split_alike_wherever_the_commas_stand) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 5000; ++round) {
    std::string row;
    for (auto length = random() % 40; length > 0; --length) {
      row += ",,,,ab-\xac\"\""[random() % 10];  // the byte 0xac is a comma with its high bit set
    }
    std::vector<std::string> expected;
    std::istringstream parts(row);
    for (std::string part; std::getline(parts, part, ',');) {
      expected.push_back(part == "\"\"" ? "" : part);
    }
    expected.resize(static_cast<std::size_t>(std::ranges::count(row, ',')) + 1);
    if (expected.size() < 2) {
      continue;
    }
    std::string text = row + "\n";
    std::vector<char*> fields(expected.size());
    pg_row_csv_parse(text.data(), fields);
    ASSERT_EQ(std::vector<std::string>(fields.begin(), fields.end()), expected) << row;
    text = row + "\n";
    std::vector<std::string_view> views(expected.size());
    pg_row_csv_parse(text.data(), views);
    ASSERT_EQ(std::vector<std::string>(views.begin(), views.end()), expected) << row;
  }
}

TEST(poll_interval, is_short_only_when_jobs_were_found_and_no_picker_failed) {
  EXPECT_EQ(qvn_task_interval(0), 5);
  EXPECT_EQ(qvn_task_interval(1), 3);
  EXPECT_EQ(qvn_task_interval(2 | 1), 3);
  EXPECT_EQ(qvn_task_interval(2 | -1), 5);
}

}  // namespace
