/// The database list: the input is the file.

#include <vector>

#include "base/qvn_mutex.h"
#include "db/qvn_db_conf.h"
#include "support.h"

namespace {

/// Every entry is whole, stands under its own key and has its own connection string.
std::vector<std::string> check_table() QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  std::vector<std::string> entries;
  for (const db_info& database : *g_core_ctrl->db_table) {
    FUZZ_CHECK(!database.host.empty() && !database.name.empty() && !database.user.empty() &&
               !database.password.empty() && database.port > 1023);
    FUZZ_CHECK(database.rerate_count == 0 && database.rate_upload_count == 0);
    const std::string key = (database.host + "-" + database.name).substr(0, 255);
    FUZZ_CHECK(g_core_ctrl->db_table->find(key.c_str()) == &database);
    const std::string expected =
        "hostaddr=" + database.host + " port=" + std::to_string(database.port) +
        " dbname=" + database.name + " user=" + database.user + " password=" + database.password;
    FUZZ_CHECK(database.conninfo == expected.substr(0, 1023));
    entries.push_back(expected);
  }
  return entries;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz_set_content({reinterpret_cast<const char*>(data), size});
  const int32_t loaded = load_db_info();
  std::vector<std::string> first;
  {
    const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
    first = check_table();
  }
  FUZZ_CHECK(reload_db_info() == loaded);
  const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
  FUZZ_CHECK(check_table() == first);
  g_core_ctrl->db_table->clear();
  FUZZ_CHECK(check_table().empty());
  return 0;
}
