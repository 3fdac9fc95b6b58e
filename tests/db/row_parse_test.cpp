#include <gtest/gtest.h>
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

TEST(poll_interval, is_short_only_when_jobs_were_found_and_no_picker_failed) {
  EXPECT_EQ(qvn_task_interval(0), 5);
  EXPECT_EQ(qvn_task_interval(1), 3);
  EXPECT_EQ(qvn_task_interval(2 | 1), 3);
  EXPECT_EQ(qvn_task_interval(2 | -1), 5);
}

}  // namespace
