#include "core/qvn_settings.h"

#include <algorithm>
#include <cstring>

#include "base/qvn_log.h"
#include "base/qvn_text.h"
#include "core/qvn_core_ctrl.h"

namespace {

constexpr const char* kLogSource = "qvn_core";

constexpr uint16_t kMaxCliConnections = 1000;

int32_t read_listen_ip(const char* value) {
  if (zstr(value)) {
    return qvn_conf_refuse("The CLI server listen IP item MUST be configurate\n", kLogSource);
  }
  const std::size_t length = std::min(std::strlen(value), kAddressSize - 1);
  std::memcpy(g_core_ctrl->cli_listen_ip, value, length);
  g_core_ctrl->cli_listen_ip[length] = '\0';
  return 0;
}

constexpr const char* kLogLevelInvalid =
    "The log level invalid  in the %s file, used the default level\n";

constexpr qvn_number_setting kLogLevel = {
    .source = kLogSource,
    .field = nullptr,
    .lowest = kLogEmergency,
    .highest = kLogDebug,
    .when_empty = kLogLevelInvalid,
    .when_out_of_range = kLogLevelInvalid,
    .wide_field = []() -> uint32_t& { return g_core_ctrl->log_level; },
    .tolerant = true};

constexpr uint32_t kBytesPerKilobyte = 1024;
constexpr qvn_number_setting kMaxLogSize = {
    .source = kLogSource,
    .field = nullptr,
    .lowest = 1024,
    .highest = 1024U * 1024U * 1024U,
    .when_empty = "The max log file size item MUST be configurate\n",
    .when_out_of_range = "The max log file size MUST be in 1024 - 1024*1024(KB)\n",
    .wide_field = []() -> uint32_t& { return g_core_ctrl->max_log_size; },
    .factor = kBytesPerKilobyte,
    .zero_is_unset = true};

constexpr qvn_number_setting kListenPort = {
    kLogSource,
    []() -> uint16_t& { return g_core_ctrl->cli_listen_port; },
    1024,
    65534,
    "The CLI server listen port item MUST be configurate\n",
    "The CLI server listen port MUST be in 1024 - 65534\n"};

constexpr qvn_number_setting kConnectionExpires = {
    kLogSource,
    []() -> uint16_t& { return g_core_ctrl->cli_connection_expires; },
    10,
    3600,
    "The CLI connection  expires item MUST be configurate\n",
    "The CLI connection expires MUST be in 10 - 3600\n"};

constexpr qvn_number_setting kConnectionLimit = {
    kLogSource,
    []() -> uint16_t& { return g_core_ctrl->cli_connection_limit; },
    1,
    kMaxCliConnections,
    "The CLI connection limit count item MUST be configurate\n",
    "The CLI connection limit count MUST be in 1 - 1000\n"};

int32_t read_login_user(const char* value) {
  return qvn_conf_read_text(g_core_ctrl->cli_login_user, value,
                            "The CLI login user item MUST be configurate\n", kLogSource);
}

int32_t read_login_password(const char* value) {
  return qvn_conf_read_text(g_core_ctrl->cli_login_pwd, value,
                            "The CLI login password item MUST be configurate\n", kLogSource);
}

constexpr qvn_setting kGeneralSettings[] = {
    {"log_level", qvn_conf_read_number<kLogLevel>, &kLogLevel},
    {"max_log_size", qvn_conf_read_number<kMaxLogSize>, &kMaxLogSize},
};

constexpr qvn_setting kCliSettings[] = {
    {"cli_listen_ip", read_listen_ip, nullptr, kAddressSize - 1},
    {"cli_listen_port", qvn_conf_read_number<kListenPort>, &kListenPort},
    {"cli_connection_expires", qvn_conf_read_number<kConnectionExpires>, &kConnectionExpires},
    {"cli_connection_limit", qvn_conf_read_number<kConnectionLimit>, &kConnectionLimit},
    {"cli_login_user", read_login_user},
    {"cli_login_pwd", read_login_password, nullptr, 0, true},
};

}  // namespace

int32_t qvn_default_conf_init() {
  std::strcpy(g_core_ctrl->cli_listen_ip, "127.0.0.1");
  g_core_ctrl->cli_listen_port = 4410;
  g_core_ctrl->cli_connection_limit = 2;
  g_core_ctrl->cli_connection_expires = 120;
  g_core_ctrl->max_rerate_task = 30;
  g_core_ctrl->max_rate_upload_task = 60;
  return 0;
}

int32_t qvn_load_section(const qvn_conf_section& section) {
  return load_conf_helper(g_core_ctrl->conf_dir.c_str(), kMainConfFile, section.name,
                          section.handler, nullptr, nullptr, 0);
}

int32_t qvn_load_config() {
  const int32_t general = qvn_load_section(qvn_general_section());
  return qvn_load_cli_config() | general;  // read, whatever has become of the other
}

int32_t qvn_load_cli_config() {
  return qvn_load_section(qvn_cli_section());
}

int32_t qvn_check_config() {
  if (!zstr(g_core_ctrl->cli_listen_ip)) {
    return 0;
  }
  return qvn_conf_refuse(
      "The configuration check failure, because CLI listen IP not configuration\n", kLogSource);
}

qvn_conf_section qvn_general_section() {
  return {"general", kGeneralSettings, read_general_config};
}

qvn_conf_section qvn_cli_section() {
  return {"CLI", kCliSettings, read_cli_config};
}

int32_t read_general_config(const char* key, const char* value) {
  return key && value ? qvn_setting_read(kGeneralSettings, key, value) : 0;
}

int32_t read_cli_config(const char* key, const char* value) {
  return qvn_setting_read(kCliSettings, key, value);
}
