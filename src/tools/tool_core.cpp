#include "tools/tool_core.h"

#include <filesystem>
#include <new>

#include "core/qvn_process.h"
#include "db/qvn_db.h"

namespace {

/// Takes the daemon's folder, or a folder with configuration files alone.
void use_folder(const std::string& folder, qvn_core_ctrl& record) {
  std::error_code none;
  const bool has_conf = std::filesystem::is_directory(folder + "/conf", none);
  const auto home = std::filesystem::absolute(folder, none).lexically_normal() / "";
  record.conf_dir = folder + (has_conf ? "/conf/" : "/");
  record.install_dir = has_conf ? home.parent_path().string() : "";
  record.log_dir = record.install_dir + "/log/";
}

}  // namespace

tool_core::tool_core(const char* folder) {
  g_core_ctrl = record_.get();
  if (qvn_core_set_path() != 0) {
    throw std::bad_alloc();
  }
  if (folder) {
    use_folder(folder, *record_);
  }
  qvn_db_set_connection_defaults();
}
