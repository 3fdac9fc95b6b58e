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

int32_t complain(const qvn_number_setting& setting, const char* message, const char* source) {
  if (!setting.tolerant) {
    return refuse(message, source);
  }
  (void)qvn_log_print(source, __LINE__, kLogInfo, 0, "%s", message);
  return 0;
}

int32_t read_text(std::string qvn_core_ctrl::*field, const char* value, const char* when_empty) {
  if (zstr(value)) {
    return refuse(when_empty);
  }
  return assign_setting(g_core_ctrl->*field, value);
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

constexpr const char* kLogLevelInvalid =
    "The log level invalid  in the %s file, used the default level\n";

constexpr qvn_number_setting kLogLevel = {
    nullptr, 0, kLogDebug, kLogLevelInvalid, kLogLevelInvalid, &qvn_core_ctrl::log_level, 1, true};

constexpr uint32_t kBytesPerKilobyte = 1024;
constexpr qvn_number_setting kMaxLogSize = {
    .field = nullptr,
    .lowest = 1024,
    .highest = 1024U * 1024U * 1024U,
    .when_empty = "The max log file size item MUST be configurate\n",
    .when_out_of_range = "The max log file size MUST be in 1024 - 1024*1024(KB)\n",
    .wide_field = &qvn_core_ctrl::max_log_size,
    .factor = kBytesPerKilobyte,
    .zero_is_unset = true};

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

template <const qvn_number_setting& Setting>
int32_t read_number(const char* value) {
  return qvn_conf_read_number(Setting, value, kLogSource);
}

int32_t read_login_user(const char* value) {
  return read_text(&qvn_core_ctrl::cli_login_user, value,
                   "The CLI login user item MUST be configurate\n");
}

int32_t read_login_password(const char* value) {
  return read_text(&qvn_core_ctrl::cli_login_pwd, value,
                   "The CLI login password item MUST be configurate\n");
}

constexpr qvn_setting kGeneralSettings[] = {
    {"log_level", read_number<kLogLevel>, &kLogLevel},
    {"max_log_size", read_number<kMaxLogSize>, &kMaxLogSize},
};

constexpr qvn_setting kCliSettings[] = {
    {"cli_listen_ip", read_listen_ip, nullptr, kAddressSize - 1},
    {"cli_listen_port", read_number<kListenPort>, &kListenPort},
    {"cli_connection_expires", read_number<kConnectionExpires>, &kConnectionExpires},
    {"cli_connection_limit", read_number<kConnectionLimit>, &kConnectionLimit},
    {"cli_login_user", read_login_user},
    {"cli_login_pwd", read_login_password, nullptr, 0, true},
};

int32_t read_section(const qvn_conf_section& section, conf_callback handler) {
  return load_conf_helper(g_core_ctrl->conf_dir.c_str(), kMainConfFile, section.name, handler,
                          nullptr, nullptr, 0);
}

}  // namespace

uint16_t qvn_conf_number16(const char* value) {
  return static_cast<uint16_t>(std::strtol(value, nullptr, 10));  // cut to the field's 16 bits
}

uint32_t qvn_setting_stored(const qvn_number_setting& setting, const char* value) {
  return setting.field ? qvn_conf_number16(value) : number32(value) * setting.factor;
}

int32_t qvn_conf_read_number(const qvn_number_setting& setting, const char* value,
                             const char* source) {
  if (zstr(value)) {
    return complain(setting, setting.when_empty, source);
  }
  const uint32_t number = qvn_setting_stored(setting, value);
  if (setting.field) {
    g_core_ctrl->*setting.field = static_cast<uint16_t>(number);  // has been cut
  } else {
    g_core_ctrl->*setting.wide_field = number;
  }
  if (number < setting.lowest || number > setting.highest) {
    return complain(setting, setting.when_out_of_range, source);
  }
  return 0;
}

int32_t qvn_conf_read_directory(std::string& directory, const char* value, const char* when_empty,
                                const char* source) {
  if (zstr(value)) {
    return refuse(when_empty, source);
  }
  char path[kMostDirectoryCharacters + 2] = {};  // a slash and a NUL behind the value
  std::memcpy(path, value, strnlen(value, kMostDirectoryCharacters));
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
  const int32_t general = read_section(qvn_general_section(), read_general_config);
  return qvn_load_cli_config() | general;  // read, whatever has become of the other
}

int32_t qvn_load_cli_config() {
  return read_section(qvn_cli_section(), read_cli_config);
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

qvn_conf_section qvn_general_section() {
  return {"general", kGeneralSettings};
}

qvn_conf_section qvn_cli_section() {
  return {"CLI", kCliSettings};
}

const qvn_setting* qvn_setting_find(std::span<const qvn_setting> settings, const char* key) {
  const auto found = std::ranges::find_if(
      settings, [key](const qvn_setting& setting) { return strcasecmp(key, setting.key) == 0; });
  return found == settings.end() ? nullptr : &*found;
}

int32_t qvn_setting_read(std::span<const qvn_setting> settings, const char* key,
                         const char* value) {
  const qvn_setting* const setting = qvn_setting_find(settings, key);
  return setting ? setting->read(value) : 0;
}

int32_t read_general_config(const char* key, const char* value) {
  return key && value ? qvn_setting_read(kGeneralSettings, key, value) : 0;
}

int32_t read_cli_config(const char* key, const char* value) {
  return qvn_setting_read(kCliSettings, key, value);
}
