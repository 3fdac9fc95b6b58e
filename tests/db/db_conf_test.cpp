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

  int32_t load(const std::string& text) const {
    support::write_file(folder_.path() / kDbConfFile, text);
    return load_db_info();
  }
  static db_info* find(const char* key) {
    const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
    return g_core_ctrl->db_table->find(key);
  }
  static int count() {
    const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
    int entries = 0;
    for ([[maybe_unused]] const db_info& entry : *g_core_ctrl->db_table) {
      ++entries;
    }
    return entries;
  }

  const support::TempDir folder_{""};
};

TEST_F(database_list, of_two_sections_of_one_database_the_later_one_counts) {
  EXPECT_EQ(load(section("a", "shop", 5001) + section("b", "shop", 5002)), 0);
  EXPECT_EQ(count(), 1);
  EXPECT_EQ(find("127.0.0.1-shop")->port, 5002);
}

TEST_F(database_list, of_two_sections_of_one_name_both_read_the_first) {
  EXPECT_EQ(load(section("a", "first") + section("a", "second")), 0);
  EXPECT_EQ(count(), 1);
  EXPECT_NE(find("127.0.0.1-first"), nullptr);
}

TEST_F(database_list, a_section_name_is_cut_at_99_characters_and_then_not_found) {
  EXPECT_EQ(load(section(std::string(99, 'n'), "short")), 0);
  EXPECT_EQ(load(section(std::string(100, 'n'), "long")), -1);
  EXPECT_EQ(find("127.0.0.1-long"), nullptr);
}

TEST_F(database_list, finished_jobs_are_counted_off_by_kind_and_never_below_zero) {
  ASSERT_EQ(load(section("a", "one")), 0);
  auto* const entry = find("127.0.0.1-one");
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
