#include "rate_upload/rate_reconcile.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

using text_list = std::vector<std::string>;

text_list drain(statement_list& list) {
  text_list texts;
  for (; !list.empty(); list.pop()) {
    texts.emplace_back(list.back());
  }
  return texts;
}

constexpr int64_t kNow = 1'700'000'000;   // 2023-11-14 22:13:20
constexpr int64_t kLine = 1'704'067'200;  // 2024-01-01 00:00:00
constexpr const char* kLineEnd = "2023-12-31 23:59:59+00";
constexpr const char* kNowEnd = "2023-11-14 22:13:19+00";

struct reconcile_case {
  const char* name;
  int32_t action;
  std::string end_date;
  std::vector<int64_t> stored;  // effective dates of rates 1, 2, ... in the order of loading
  text_list updates;            // in the order in which they are sent
  text_list deletions;
};

std::string end(int rate, const std::string& date) {
  return "update rate set end_date = '" + date + "' where rate_id = " + std::to_string(rate);
}

std::string removal(int rate) {
  return "delete from rate where rate_id = " + std::to_string(rate);
}

TEST(reconciliation, decides_by_date_and_action_what_becomes_of_a_stored_rate) {
  const reconcile_case cases[] = {
      {"later rate stays", 1, "", {kLine + 1}, {}, {}},
      {"same date, action 0: both stay", 0, "", {kLine}, {}, {}},
      {"same date, action 1: deleted", 1, "", {kLine}, {}, {removal(1)}},
      {"same date, action 2: ended a second ago", 2, "", {kLine}, {end(1, kNowEnd)}, {}},
      {"same date, unknown action: both stay", 3, "", {kLine}, {}, {}},
      {"earlier rate ends where the new one begins", 0, "", {kLine - 1}, {end(1, kLineEnd)}, {}},
      {"the job's end date is used as it stands",
       0,
       "any 'text",
       {kLine - 1},
       {end(1, "any 'text")},
       {}},
      {"the job's end date is not for repeated rates", 2, "given", {kLine}, {end(1, kNowEnd)}, {}},
      {"each rate is judged; the last queued is sent first",
       1,
       "",
       {kLine + 5, kLine, kLine - 7, kLine - 9},
       {end(3, kLineEnd), end(4, kLineEnd)},
       {removal(2)}},
      {"no rates, nothing to do", 1, "", {}, {}, {}},
  };
  for (const reconcile_case& test : cases) {
    SCOPED_TRACE(test.name);
    rp_hash_node node{};
    for (std::size_t i = 0; i < test.stored.size(); ++i) {
      rate_node* const rate =
          rate_node_create({.code = "44", .rate_id = std::to_string(i + 1), .rate_table_id = "7"});
      rate->effective_date = test.stored[i];
      rate_node_link(&node, rate);
    }
    import_record line{};
    line.code = "44";
    line.effective_date = kLine;
    statement_list updates;
    statement_list deletions;
    rate_reconciler(test.action, test.end_date, kNow).reconcile(line, node, updates, deletions);
    EXPECT_EQ(drain(updates), test.updates);
    EXPECT_EQ(drain(deletions), test.deletions);
    delete_rate_node(&node, nullptr);
  }
}

}  // namespace
