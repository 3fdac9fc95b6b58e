#include "core/qvn_settings.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "base/qvn_conf_file.h"
#include "base/qvn_log.h"
#include "base/qvn_text.h"
#include "core/qvn_core_ctrl.h"

namespace {

constexpr const char* kLogSource = "qvn_core";

constexpr uint16_t kMaxCliConnections = 1000;

/// A text of the configuration found no memory. The daemon does not run without it: a console whose
/// password was lost would let everyone in. Main thread, until the modules run.
bool g_setting_lost = false;

int32_t assign_setting(std::string& field, const char* value) {
  if (qvn_core_assign(field, value)) {
    return 0;
  }
  QVN_LOG(kLogError, "Alloc memory for a setting failed\n");
  g_setting_lost = true;
  return -1;
}

uint32_t number32(const char* value) {
  return static_cast<uint32_t>(std::strtol(value, nullptr, 10));  // cut to the field's 32 bits
}

int32_t refuse(const char* message, const char* source = kLogSource) {
  (void)qvn_log_print(source, __LINE__, kLogNotice, 0, "%s", message);
  return -1;
}

int32_t read_text(std::string qvn_core_ctrl::*field, const char* value, const char* when_empty) {
  if (zstr(value)) {
    return refuse(when_empty);
  }
  return assign_setting(g_core_ctrl->*field, value);
}

int32_t read_log_level(const char* value) {
  constexpr uint32_t kHighestLevel = kLogDebug;
  constexpr const char* kInvalid =
      "The log level invalid  in the %s file, used the default level\n";
  const bool empty = zstr(value);
  if (!empty) {
    g_core_ctrl->log_level = number32(value);
  }
  if (empty || g_core_ctrl->log_level > kHighestLevel) {
    QVN_LOG(kLogInfo, "%s", kInvalid);
  }
  return 0;
}

int32_t read_max_log_size(const char* value) {
  constexpr uint32_t kBytesPerKilobyte = 1024;
  constexpr uint32_t kLowest = 1024;
  constexpr uint32_t kHighest = 1024U * 1024U * 1024U;
  if (zstr(value)) {
    return refuse("The max log file size item MUST be configurate\n");
  }
  g_core_ctrl->max_log_size = number32(value) * kBytesPerKilobyte;
  if (g_core_ctrl->max_log_size < kLowest || g_core_ctrl->max_log_size > kHighest) {
    return refuse("The max log file size MUST be in 1024 - 1024*1024(KB)\n");
  }
  return 0;
}

int32_t read_listen_ip(const char* value) {
  if (zstr(value)) {
    return refuse("The CLI server listen IP item MUST be configurate\n");
  }
  const std::size_t length = std::min(std::strlen(value), kAddressSize - 1);
  std::memcpy(g_core_ctrl->cli_listen_ip, value, length);
  g_core_ctrl->cli_listen_ip[length] = '\0';
  return 0;
}

constexpr qvn_number_setting kListenPort = {&qvn_core_ctrl::cli_listen_port, 1024, 65534,
                                            "The CLI server listen port item MUST be configurate\n",
                                            "The CLI server listen port MUST be in 1024 - 65534\n"};

constexpr qvn_number_setting kConnectionExpires = {
    &qvn_core_ctrl::cli_connection_expires, 10, 3600,
    "The CLI connection  expires item MUST be configurate\n",
    "The CLI connection expires MUST be in 10 - 3600\n"};

constexpr qvn_number_setting kConnectionLimit = {
    &qvn_core_ctrl::cli_connection_limit, 1, kMaxCliConnections,
    "The CLI connection limit count item MUST be configurate\n",
    "The CLI connection limit count MUST be in 1 - 1000\n"};

int32_t read_section(const char* section, conf_callback handler) {
  return load_conf_helper(g_core_ctrl->conf_dir.c_str(), kMainConfFile, section, handler, nullptr,
                          nullptr, 0);
}

}  // namespace

uint16_t qvn_conf_number16(const char* value) {
  return static_cast<uint16_t>(std::strtol(value, nullptr, 10));  // cut to the field's 16 bits
}

int32_t qvn_conf_read_number(const qvn_number_setting& setting, const char* value,
                             const char* source) {
  if (zstr(value)) {
    return refuse(setting.when_empty, source);
  }
  const uint16_t number = qvn_conf_number16(value);
  g_core_ctrl->*setting.field = number;
  if (number < setting.lowest || number > setting.highest) {
    return refuse(setting.when_out_of_range, source);
  }
  return 0;
}

int32_t qvn_conf_read_directory(std::string& directory, const char* value, const char* when_empty,
                                const char* source) {
  constexpr std::size_t kMostCharacters = 197;
  if (zstr(value)) {
    return refuse(when_empty, source);
  }
  char path[kMostCharacters + 2] = {};  // a slash and a NUL behind the value
  std::memcpy(path, value, strnlen(value, kMostCharacters));
  const std::size_t length = std::strlen(path);
  if (path[length - 1] != '/') {
    path[length] = '/';
  }
  return assign_setting(directory, path);
}

int32_t qvn_default_conf_init() {
  std::strcpy(g_core_ctrl->cli_listen_ip, "127.0.0.1");
  g_core_ctrl->cli_listen_port = 4410;
  g_core_ctrl->cli_connection_limit = 2;
  g_core_ctrl->cli_connection_expires = 120;
  g_core_ctrl->max_rerate_task = 30;
  g_core_ctrl->max_rate_upload_task = 60;
  return 0;
}

int32_t qvn_load_config() {
  return read_section("general", read_general_config) | qvn_load_cli_config();
}

int32_t qvn_load_cli_config() {
  return read_section("CLI", read_cli_config);
}

int32_t qvn_check_config() {
  if (!zstr(g_core_ctrl->cli_listen_ip)) {
    return 0;
  }
  return refuse("The configuration check failure, because CLI listen IP not configuration\n");
}

bool qvn_settings_whole() {
  return !g_setting_lost;
}

int32_t read_general_config(const char* key, const char* value) {
  if (!key || !value) {
    return 0;
  }
  if (strcasecmp(key, "log_level") == 0) {
    return read_log_level(value);
  }
  if (strcasecmp(key, "max_log_size") == 0) {
    return read_max_log_size(value);
  }
  return 0;
}

int32_t read_cli_config(const char* key, const char* value) {
  const auto is = [key](const char* name) { return strcasecmp(key, name) == 0; };
  if (is("cli_listen_ip")) {
    return read_listen_ip(value);
  }
  if (is("cli_listen_port")) {
    return qvn_conf_read_number(kListenPort, value, kLogSource);
  }
  if (is("cli_connection_expires")) {
    return qvn_conf_read_number(kConnectionExpires, value, kLogSource);
  }
  if (is("cli_connection_limit")) {
    return qvn_conf_read_number(kConnectionLimit, value, kLogSource);
  }
  if (is("cli_login_user")) {
    return read_text(&qvn_core_ctrl::cli_login_user, value,
                     "The CLI login user item MUST be configurate\n");
  }
  if (is("cli_login_pwd")) {
    return read_text(&qvn_core_ctrl::cli_login_pwd, value,
                     "The CLI login password item MUST be configurate\n");
  }
  return 0;
}
