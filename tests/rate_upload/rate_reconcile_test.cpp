// What a line does to the stored rates of its code, and which statements share a text.
#include "rate_upload/rate_reconcile.h"

#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <utility>

#include "rate_upload/rate_statements.h"

namespace {

/// "id moment" of each, newest first; the job's end date as "job".
std::string shown(const statement_list& list) {
  std::string text;
  list.look_through([&](const rate_statement& each) {
    text +=
        each.rate_id + (each.end == kJobsEndDate ? " job" : " " + std::to_string(each.end)) + ";";
    return true;
  });
  return text;
}

TEST(rate_reconcile, ends_earlier_rates_and_treats_those_of_the_same_date_by_the_job) {
  stored_rates rates;
  for (const auto& [id, date] :
       {std::pair("1", 98), {"2", 99}, {"3", 100}, {"4", 100}, {"5", 101}}) {
    ASSERT_TRUE(rates.add("44", id, date, 0) && rates.add("441", "6", date, 0));
  }
  const std::tuple<int32_t, bool, const char*, const char*> cases[] = {
      {0, false, "2 99;1 99;", ""},
      {1, false, "2 99;1 99;", "3 0;4 0;"},
      {2, false, "3 999;4 999;2 99;1 99;", ""},
      {3, true, "2 job;1 job;", ""},
      {1, true, "2 job;1 job;", "3 0;4 0;"},
      {2, true, "3 999;4 999;2 job;1 job;", ""}};
  import_terms terms;
  terms.effective.epoch = 100;
  for (const auto& [action, has_end_date, ended, deleted] : cases) {
    const rate_reconciler reconciler{action, has_end_date, 1000};
    statement_list updates, deletions;
    for (const char* code : {"44", "4", "442"}) {  // the others have no rates
      const import_record line{code, nullptr, nullptr, &terms, 1, -1, -1, -1};
      EXPECT_TRUE(reconciler.reconcile(line, rates, updates, deletions));
    }
    EXPECT_EQ(shown(updates), ended) << action << has_end_date;
    EXPECT_EQ(shown(deletions), deleted) << action << has_end_date;
  }
}

TEST(rate_statements, share_a_text_unless_one_could_harm_the_others) {
  const auto join = [](const std::string& end_date, const char* id, int64_t end = kJobsEndDate) {
    statement_list list;
    EXPECT_TRUE(list.push({"7", kJobsEndDate}) && list.push({id, end}));
    const rate_statement_writer writer(end_date);
    return writer.joined(writer.joinable(list, 9));
  };
  EXPECT_EQ(join("e-n/d *", "8"), "update rate set end_date = 'e-n/d *' where rate_id in (8,7);\n");
  EXPECT_EQ(join("e'", "9223372036854775807", 59),
            "update rate set end_date = '1970-01-01 00:00:59+00' where rate_id in "
            "(9223372036854775807);\n");
  for (const char* end_date : {"e'", "e\\", "e;", "e--", "e/*"}) {
    EXPECT_EQ(join(end_date, "8").find(','), std::string::npos) << end_date;
  }
  for (const char* id : {"8x", " 8", "", "0", "-8", "9223372036854775808", "7"}) {
    EXPECT_EQ(join("e", id).find(','), std::string::npos) << id;
  }
}

}  // namespace
