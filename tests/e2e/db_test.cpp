// The database layer against a real server: the loaders that no job uses yet.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "db/qvn_db.h"
#include "e2e/portal_world.h"

namespace {

using testing::ElementsAre;

pg_connection connect() {
  return qvn_pg_conn((std::string("hostaddr=127.0.0.1 dbname=postgres user=") +
                      support::TestCluster::kUser + " password=" + support::TestCluster::kPassword +
                      " port=" + std::to_string(e2e::cluster().port()))
                         .c_str(),
                     "Layer");
}

std::vector<std::string>* g_seen = nullptr;  // callbacks without a context

TEST(Db, LoadersHandOutRowsAndCountThem) {
  const pg_connection connection = connect();
  ASSERT_TRUE(connection);
  std::vector<std::string> seen;
  g_seen = &seen;
  const pg_row_fn take_row = [](int row, PGresult* result) {
    g_seen->push_back(std::to_string(row) + PQgetvalue(result, row, 0));
    return 0;
  };
  EXPECT_EQ(qvn_db_data_select(connection.get(), "SELECT * FROM (VALUES ('a'), ('b')) v", take_row),
            2);
  EXPECT_THAT(seen, ElementsAre("0a", "1b"));
  EXPECT_EQ(qvn_db_data_select(connection.get(), "SELECT 1 / 0", take_row), 0);

  seen.clear();
  int32_t rows = 0;
  EXPECT_EQ(
      qvn_db_data_copy_load(
          connection.get(), "COPY (VALUES (1, 'x'), (2, '')) TO STDOUT DELIMITER ',' CSV HEADER", 2,
          [](std::span<char*> fields) {
            g_seen->push_back(std::string(fields[0]) + fields[1]);
            return 0;
          },
          &rows, "Layer"),
      0);
  EXPECT_THAT(seen, ElementsAre("1x", "2"));
  EXPECT_EQ(rows, 3) << "with the header";

  int64_t highest = -7;
  EXPECT_EQ(qvn_get_max_record(connection.get(), "SELECT 12345678901", &highest, "Layer"), 0);
  EXPECT_EQ(highest, 12345678901);
  // No server answers any more.
  EXPECT_EQ(qvn_db_try_update(connection.get(), "SELECT pg_terminate_backend(pg_backend_pid())"),
            -1);
  EXPECT_EQ(qvn_get_max_record(connection.get(), "SELECT 1", &highest, "Layer"), -1);
  EXPECT_EQ(qvn_db_data_select(connection.get(), "SELECT 1", take_row), -1);
}

}  // namespace
