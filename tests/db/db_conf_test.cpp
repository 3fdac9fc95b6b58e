#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "db/qvn_db_conf.h"

namespace {

std::string section(const std::string& name, const std::string& database, int port = 5432,
                    const std::string& host = "127.0.0.1") {
  return "[" + name + "]\ndb_host=" + host + "\ndb_listen_port=" + std::to_string(port) +
         "\ndb_name=" + database + "\nDB_USER=u\ndb_user_password=p\n";
}

/// A core record with an empty database table and a configuration directory of its own.
class database_list : public testing::Test {
 protected:
  database_list() {
    directory_ =
        std::filesystem::temp_directory_path() / ("qvn_db_conf_" + std::to_string(getpid()));
    std::filesystem::create_directories(directory_);
    g_core_ctrl = new qvn_core_ctrl;
    g_core_ctrl->conf_dir = directory_.string() + "/";
    qvn_hash_init(&table_);
    g_core_ctrl->db_table = &table_;
  }
  ~database_list() override QVN_NO_THREAD_SAFETY_ANALYSIS {
    db_info_clear();
    delete g_core_ctrl;
    g_core_ctrl = nullptr;
    std::filesystem::remove_all(directory_);
  }

  void write(const std::string& text) const { std::ofstream(directory_ / kDbConfFile) << text; }
  int32_t load(const std::string& text) const {
    write(text);
    return load_db_info();
  }
  const db_info* find(const std::string& key) const {
    return reinterpret_cast<const db_info*>(qvn_hash_find(&table_, key.c_str()));
  }

  std::filesystem::path directory_;
  qvn_hash_table table_{};
};

TEST_F(database_list, a_section_becomes_an_entry_with_its_connection_string) {
  ASSERT_EQ(load("# list\n" + section(" a ", "shop")), 0);
  const db_info* const entry = find("127.0.0.1-shop");
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->conninfo, "hostaddr=127.0.0.1 port=5432 dbname=shop user=u password=p");
}

TEST_F(database_list, an_empty_file_is_a_success_and_a_missing_one_is_not) {
  EXPECT_EQ(load(""), 0);
  EXPECT_EQ(table_.count, 0);
  std::filesystem::remove(directory_ / kDbConfFile);
  EXPECT_EQ(load_db_info(), -1);
}

TEST_F(database_list, one_invalid_section_fails_the_load_but_the_valid_ones_are_in) {
  EXPECT_EQ(load(section("a", "one") + section("b", "two", 80) + section("c", "three")), -1);
  EXPECT_NE(find("127.0.0.1-one"), nullptr);
  EXPECT_EQ(find("127.0.0.1-two"), nullptr);
  EXPECT_NE(find("127.0.0.1-three"), nullptr);
  EXPECT_EQ(load("[x]\n"), -1);
}

TEST_F(database_list, of_two_sections_of_one_database_the_later_one_counts) {
  EXPECT_EQ(load(section("a", "shop", 5001) + section("b", "shop", 5002)), 0);
  EXPECT_EQ(table_.count, 1);
  EXPECT_EQ(find("127.0.0.1-shop")->port, 5002);
}

TEST_F(database_list, of_two_sections_of_one_name_both_read_the_first) {
  EXPECT_EQ(load(section("a", "first") + section("a", "second")), 0);
  EXPECT_EQ(table_.count, 1);
  EXPECT_NE(find("127.0.0.1-first"), nullptr);
}

TEST_F(database_list, a_section_name_is_cut_at_99_characters_and_then_not_found) {
  EXPECT_EQ(load(section(std::string(99, 'n'), "short")), 0);
  EXPECT_EQ(load(section(std::string(100, 'n'), "long")), -1);
  EXPECT_EQ(find("127.0.0.1-long"), nullptr);
}

TEST_F(database_list, a_reload_starts_anew_and_forgets_the_counts) {
  ASSERT_EQ(load(section("a", "one") + section("b", "two")), 0);
  const_cast<db_info*>(find("127.0.0.1-one"))->rate_upload_count = 3;
  write(section("a", "one"));
  EXPECT_EQ(reload_db_info(), 0);
  EXPECT_EQ(table_.count, 1);
  EXPECT_EQ(find("127.0.0.1-one")->rate_upload_count, 0);
}

TEST_F(database_list, finished_jobs_are_counted_off_by_kind_and_never_below_zero) {
  ASSERT_EQ(load(section("a", "one")), 0);
  auto* const entry = const_cast<db_info*>(find("127.0.0.1-one"));
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

}  // namespace
