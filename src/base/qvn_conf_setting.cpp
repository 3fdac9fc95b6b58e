#include "base/qvn_conf_setting.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <strings.h>

#include "base/qvn_log.h"
#include "base/qvn_text.h"

namespace {

/// A text of the configuration found no memory. The daemon does not run without it: a console whose
/// password was lost would let everyone in. Main thread, until the modules run.
bool g_setting_lost = false;

int32_t complain(const qvn_number_setting& setting, const char* message) {
  if (!setting.tolerant) {
    return qvn_conf_refuse(message, setting.source, setting.line);
  }
  (void)qvn_log_print(setting.source, setting.line, kLogInfo, 0, "%s", message);
  return 0;
}

}  // namespace

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

uint32_t qvn_setting_stored(const qvn_number_setting& setting, const char* value) {
  const auto number = static_cast<uint32_t>(std::strtol(value, nullptr, 10));  // cut to 32 bits
  return number * setting.factor & setting.widest;
}

int32_t qvn_conf_read_number(const qvn_number_setting& setting, const char* value) {
  if (zstr(value)) {
    return complain(setting, setting.when_empty);
  }
  const uint32_t number = qvn_setting_stored(setting, value);
  setting.store(number);
  const bool fits = number >= setting.lowest && number <= setting.highest;
  return fits ? 0 : complain(setting, setting.when_out_of_range);
}

int32_t qvn_conf_read_text(std::string& text, const char* value, const char* when_empty,
                           const char* source, int line) {
  if (zstr(value)) {
    return qvn_conf_refuse(when_empty, source, line);
  }
  if (qvn_conf_assign(text, value)) {
    return 0;
  }
  (void)qvn_log_print(source, line, kLogError, 0, "Alloc memory for a setting failed\n");
  g_setting_lost = true;
  return -1;
}

int32_t qvn_conf_read_directory(std::string& directory, const char* value, const char* when_empty,
                                const char* source, int line) {
  char path[kMostDirectoryCharacters + 2] = {};  // a slash and a NUL after the value
  const std::size_t length =
      std::string_view(qvn_or_empty(value)).copy(path, kMostDirectoryCharacters);
  if (length > 0 && path[length - 1] != '/') {
    path[length] = '/';
  }
  return qvn_conf_read_text(directory, path, when_empty, source, line);
}

int32_t qvn_conf_refuse(const char* message, const char* source, int line) {
  (void)qvn_log_print(source, line, kLogNotice, 0, "%s", message);
  return -1;
}

bool qvn_conf_assign(std::string& text, const char* value) {
  try {
    text.assign(value);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

bool qvn_settings_whole() {
  return !g_setting_lost;
}
