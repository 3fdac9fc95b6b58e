#include "db/qvn_db_conf.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <forward_list>
#include <memory>
#include <new>

#include "base/qvn_conf_file.h"
#include "base/qvn_file.h"
#include "base/qvn_log.h"
#include "base/qvn_text.h"
#include "core/qvn_settings.h"

namespace {

constexpr const char* kLogSource = "qvn_db_conf";

constexpr std::size_t kSectionNameLength = 99;
constexpr std::size_t kConninfoLength = 1023;

/// Section names, the last one of the file first.
using section_list = std::forward_list<std::string>;

int32_t refuse(const char* message) {
  QVN_LOG(kLogNotice, "%s", message);
  return -1;
}

/// The name of a section header, cut out of the line in place; null for any other line.
const char* section_name(char* line) {
  if (*line == '#' || *line == ';') {
    return nullptr;
  }
  char* text = qvn_strip_prefix_blank(line);
  if (*text != '[') {
    return nullptr;
  }
  char* const name = qvn_strip_prefix_blank(text + 1);
  char* const end = std::strchr(name, ']');
  if (!end || end == name) {
    return nullptr;
  }
  *end = '\0';
  qvn_strip_suffix_blank(end - 1);
  return zstr(name) ? nullptr : name;
}

bool add_section(section_list& sections, const char* name) {
  try {
    sections.emplace_front(name, strnlen(name, kSectionNameLength));
  } catch (const std::bad_alloc&) {
    QVN_LOG(kLogError, "Alloc memory for a new DB segment %s failed\n", name);
    return false;
  }
  return true;
}

/// Collects the names of all sections of the list file; false, logged, when it cannot.
bool load_db_section_name(section_list& sections) {
  constexpr int kLineSize = 254;  // 253 characters and a NUL; a longer line is read in pieces
  char path[256];
  (void)std::snprintf(path, sizeof path, "%s%s", g_core_ctrl->conf_dir.c_str(), kDbConfFile);
  const qvn_file file(std::fopen(path, "re"));
  if (!file) {
    QVN_LOG(kLogWarning, "Can't open a %s file\n", path);
    return false;
  }
  char line[256] = {};
  while (std::fgets(line, kLineSize, file.get())) {
    const char* const name = section_name(line);
    if (name && !add_section(sections, name)) {
      return false;
    }
    std::memset(line, 0, sizeof line);
  }
  return true;
}

void reset_staged() QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  g_core_ctrl->staged_db_port = 0;
  for (std::string* const text : {&g_core_ctrl->staged_db_host, &g_core_ctrl->staged_db_name,
                                  &g_core_ctrl->staged_db_user, &g_core_ctrl->staged_db_password}) {
    text->clear();
    text->shrink_to_fit();
  }
}

bool staged_section_valid() QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  return !g_core_ctrl->staged_db_host.empty() && !g_core_ctrl->staged_db_name.empty() &&
         !g_core_ctrl->staged_db_user.empty() && !g_core_ctrl->staged_db_password.empty() &&
         g_core_ctrl->staged_db_port > kHighestSystemPort;
}

/// Reads one section and adds its database, if it is one. 0, or -1, logged.
int32_t load_section(const std::string& section) QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  int32_t result = load_conf_helper(g_core_ctrl->conf_dir.c_str(), kDbConfFile, section.c_str(),
                                    read_db_config, nullptr, nullptr, 0);
  if (!staged_section_valid()) {
    QVN_LOG(kLogWarning, "The db info %s configure invalid\n", g_core_ctrl->staged_db_name.c_str());
    result = -1;
  }
  // An invalid section is refused there with a line of its own.
  (void)db_info_add(g_core_ctrl->staged_db_host, g_core_ctrl->staged_db_port,
                    g_core_ctrl->staged_db_name, g_core_ctrl->staged_db_user,
                    g_core_ctrl->staged_db_password);
  reset_staged();
  return result;
}

/// Null when memory runs out.
std::unique_ptr<db_info> make_entry(const std::string& host, uint16_t port, const std::string& name,
                                    const std::string& user, const std::string& password) {
  try {
    std::string conninfo =
        qvn_format("hostaddr=%s port=%d dbname=%s user=%s password=%s", host.c_str(), port,
                   name.c_str(), user.c_str(), password.c_str());
    conninfo.resize(std::min(conninfo.size(), kConninfoLength));
    return std::unique_ptr<db_info>(
        new db_info{host, port, name, user, password, std::move(conninfo), 0, 0, {}});
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

bool is_whole(const db_info& entry) {
  return !entry.host.empty() && !entry.name.empty() && !entry.user.empty() &&
         !entry.password.empty() && entry.port > kHighestSystemPort;
}

int32_t stage_text(std::string& staged, const char* value, const char* when_empty) {
  if (zstr(value)) {
    return refuse(when_empty);
  }
  return qvn_core_assign(staged, value) ? 0 : -1;
}

int32_t stage_host(const char* value) QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  return stage_text(g_core_ctrl->staged_db_host, value,
                    "The listen database host MUST be configurate\n");
}

/// The range is that of the whole section, looked at when all of it has been read.
constexpr qvn_number_setting kPort = {&qvn_core_ctrl::staged_db_port, 0, UINT16_MAX,
                                      "The listen database listen port MUST be configurate\n", ""};

int32_t stage_port(const char* value) {
  return qvn_conf_read_number(kPort, value, kLogSource);
}

int32_t stage_name(const char* value) QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  return stage_text(g_core_ctrl->staged_db_name, value,
                    "The listen database name MUST be configurate\n");
}

int32_t stage_user(const char* value) QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  return stage_text(g_core_ctrl->staged_db_user, value,
                    "The listen database login user MUST be configurate\n");
}

int32_t stage_password(const char* value) QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  return stage_text(g_core_ctrl->staged_db_password, value,
                    "The listen database login password MUST be configurate\n");
}

constexpr qvn_setting kSettings[] = {
    {"db_host", stage_host},
    {"db_listen_port", stage_port, &kPort},
    {"db_name", stage_name},
    {"db_user", stage_user},
    {"db_user_password", stage_password, nullptr, 0, true},
};

void lower(uint16_t& count) {
  if (count > 0) {
    --count;
  }
}

}  // namespace

qvn_db_key qvn_db_key_make(const std::string& host, const std::string& name) {
  qvn_db_key key;
  (void)std::snprintf(key.text, sizeof key.text, "%s-%s", host.c_str(), name.c_str());
  return key;
}

int32_t load_db_info() {
  section_list sections;
  if (!load_db_section_name(sections)) {
    QVN_LOG(kLogError, "Loading database section configure failed\n");
    return -1;
  }
  const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
  int32_t result = 0;
  for (const std::string& section : sections) {
    result |= load_section(section);
  }
  return result;
}

int32_t reload_db_info() {
  {
    const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
    db_info_clear();
  }
  return load_db_info();
}

int32_t db_info_add(const std::string& host, uint16_t port, const std::string& name,
                    const std::string& user, const std::string& password) {
  const qvn_db_key key = qvn_db_key_make(host, name);
  qvn_hash_table* const table = g_core_ctrl->db_table;
  if (qvn_hash_find(table, key.text) != 0) {
    QVN_LOG(kLogNotice, "The db host %s dbname %s have been in the db list\n", host.c_str(),
            name.c_str());
    return 0;
  }
  std::unique_ptr<db_info> entry = make_entry(host, port, name, user, password);
  if (!entry || !is_whole(*entry) ||
      qvn_hash_insert(table, key.text, reinterpret_cast<qvn_hash_value>(entry.get())) != 0) {
    QVN_LOG(kLogError, "Alloc memory for db info %s failed\n", key.text);
    return -1;
  }
  (void)entry.release();  // the table owns it now
  QVN_LOG(kLogNotice, "Added a new db host %s dbname %s\n", host.c_str(), name.c_str());
  return 0;
}

void db_info_free(db_info** entry) {
  delete *entry;
  *entry = nullptr;
}

void db_info_clear() {
  qvn_hash_table* const table = g_core_ctrl->db_table;
  for (const qvn_hash_element* element = table->first; element; element = element->next) {
    auto* entry = reinterpret_cast<db_info*>(element->data);
    db_info_free(&entry);
  }
  qvn_hash_clear(table);
}

void db_info_task_sub(const std::string& key, job_kind kind) {
  const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
  auto* const entry = reinterpret_cast<db_info*>(qvn_hash_find(g_core_ctrl->db_table, key.c_str()));
  if (!entry) {
    return;
  }
  switch (kind) {
    case job_kind::rerate:
      lower(entry->rerate_count);
      QVN_LOG(kLogDebug, "%s remove rerate task, current task count %d\n", key.c_str(),
              entry->rerate_count);
      break;
    case job_kind::rate_upload:
      lower(entry->rate_upload_count);
      QVN_LOG(kLogDebug, "%s remove import rate task, current task count %d\n", key.c_str(),
              entry->rate_upload_count);
      break;
  }
}

std::span<const qvn_setting> qvn_db_settings() {
  return kSettings;
}

int32_t read_db_config(const char* key, const char* value) {
  return qvn_setting_read(kSettings, key, value);
}
