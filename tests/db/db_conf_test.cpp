#include <gtest/gtest.h>
#include <string>

#include "db/qvn_db_conf.h"
#include "db/qvn_task.h"
#include "support/temp_dir.h"

namespace {

std::string section(const std::string& name, const std::string& database, int port = 5432) {
  return "[" + name + "]\ndb_host=127.0.0.1\ndb_listen_port=" + std::to_string(port) +
         "\ndb_name=" + database + "\nDB_USER=u\ndb_user_password=p\n";
}

/// How an entry is shown below.
std::string shown(const std::string& database, int port = 5432, const std::string& password = "p") {
  return "127.0.0.1-" + database + ": hostaddr=127.0.0.1 port=" + std::to_string(port) +
         " dbname=" + database + " user=u password=" + password + "\n";
}

/// A core record with an empty database table and a configuration directory of its own.
class database_list : public testing::Test {
 protected:
  database_list() {
    g_core_ctrl = new qvn_core_ctrl;
    g_core_ctrl->conf_dir = folder_.path().string() + "/";
    EXPECT_EQ(qvn_db_conf_init(), 0);
  }
  ~database_list() override {
    delete g_core_ctrl;
    g_core_ctrl = nullptr;
  }

  int32_t reload(const std::string& text) const {
    support::write_file(folder_.path() / kDbConfFile, text);
    return reload_db_info();
  }
  /// The entries, each of which has to be found by its key and to be without jobs.
  static std::string entries() {
    const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
    std::string list;
    for (const db_info& each : *g_core_ctrl->db_table) {
      const qvn_db_key key = qvn_db_key_make(each.host, each.name);
      EXPECT_EQ(g_core_ctrl->db_table->find(key.text), &each);
      EXPECT_EQ(each.rerate_count + each.rate_upload_count, 0);
      list += std::string(key.text) + ": " + each.conninfo + "\n";
    }
    return list;
  }

  const support::TempDir folder_{""};
};

TEST_F(database_list, holds_what_its_sections_say_and_nothing_of_before) {
  const std::string n99(99, 'n');
  const struct {
    std::string text, entries;
    int32_t result;
  } cases[] = {
      {section("a", "shop"), shown("shop"), 0},
      {"x=y\n[]\n", "", 0},
      {section("a", "shop", 5001) + section("b", "shop", 5002), shown("shop", 5002), 0},
      {section("a", "first") + section("a", "second"), shown("first"), 0},
      {section(n99, "short") + section("m" + n99, "long"), shown("short"), -1},
      {section("a", "low", 1023) + section("b", "high", 1024), shown("high", 1024), -1},
      {section("a", "shop") + "[b]\ndb_host=127.0.0.1\n", shown("shop"), -1},
      {section("a", "shop") + "other=1\ndb_user_password=q\n", shown("shop", 5432, "q"), 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(reload(c.text), c.result) << c.text;
    EXPECT_EQ(entries(), c.entries) << c.text;
  }
  EXPECT_EQ(std::string(qvn_db_key_make(n99 + n99, n99).text).size(), 255U);
}

TEST_F(database_list, finished_jobs_are_counted_off_by_kind_and_never_below_zero) {
  ASSERT_EQ(reload(section("a", "one")), 0);
  db_info* const entry = [] {
    const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
    return g_core_ctrl->db_table->find("127.0.0.1-one");
  }();
  entry->rate_upload_count = 2;
  entry->rerate_count = 1;
  db_info_task_sub("127.0.0.1-one", job_kind::rate_upload);
  EXPECT_EQ(entry->rate_upload_count, 1);
  EXPECT_EQ(entry->rerate_count, 1);
  db_info_task_sub("127.0.0.1-one", job_kind::rerate);
  db_info_task_sub("127.0.0.1-one", job_kind::rerate);
  EXPECT_EQ(entry->rerate_count, 0);
  db_info_task_sub("unknown", job_kind::rerate);
}

TEST(poll_interval, is_short_only_when_jobs_were_found_and_no_picker_failed) {
  EXPECT_EQ(qvn_task_interval(0), 5);
  EXPECT_EQ(qvn_task_interval(2 | 1), 3);
  EXPECT_EQ(qvn_task_interval(2 | -1), 5);
}

}  // namespace
