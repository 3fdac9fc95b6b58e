#include "tools/tool_core.h"

#include <filesystem>
#include <new>

#include "core/qvn_process.h"
#include "db/qvn_db.h"

namespace {

/// The folder itself, or the one named conf in it; ends in "/".
std::string conf_directory(const std::string& folder) {
  std::error_code none;
  const std::string below = folder + "/conf/";
  return std::filesystem::is_directory(below, none) ? below : folder + "/";
}

}  // namespace

tool_core::tool_core(const char* folder) {
  g_core_ctrl = record_.get();
  if (qvn_core_set_path() != 0) {
    throw std::bad_alloc();
  }
  if (folder) {
    record_->conf_dir = conf_directory(folder);
  }
  qvn_db_set_connection_defaults();
}
