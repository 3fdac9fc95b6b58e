#include "db/qvn_db_conf.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <forward_list>
#include <new>

#include "base/qvn_conf_file.h"
#include "base/qvn_conf_setting.h"
#include "base/qvn_log.h"
#include "base/qvn_text.h"

namespace {

constexpr const char* kLogSource = "qvn_db_conf";

constexpr std::size_t kConninfoLength = 1023;

/// A section of the list file, with the values that its lines have given so far.
struct db_section : db_info {
  std::string heading;
};

/// The last section of the file first.
using section_list = std::forward_list<db_section>;

/// The head of the list, which is the section that is being read; null outside load_db_info.
db_section* g_db_section QVN_GUARDED_BY(g_core_ctrl->db_list_lock) = nullptr;

bool add_section(section_list& sections, const char* name) {
  try {
    sections.emplace_front().heading.assign(name, strnlen(name, kMostSectionCharacters));
  } catch (const std::bad_alloc&) {
    QVN_LOG(kLogError, "Alloc memory for a new DB segment %s failed\n", name);
    return false;
  }
  return true;
}

/// Collects the names of all sections of the list file; false, logged, when it cannot.
bool load_db_section_name(section_list& sections) {
  conf_reader reader(g_core_ctrl->conf_dir.c_str(), kDbConfFile);
  if (!reader.is_open()) {
    QVN_LOG(kLogWarning, "Can't open a %s file\n", reader.path());
    return false;
  }
  for (conf_line line; reader.next(line);) {
    if (line.kind == conf_kind::header && !zstr(line.key) && !add_section(sections, line.key)) {
      return false;
    }
  }
  return true;
}

/// Whether every setting is there.
bool is_whole(const db_info& database) {
  return !database.host.empty() && !database.name.empty() && !database.user.empty() &&
         !database.password.empty() && database.port > kHighestSystemPort;
}

/// Reads the section and adds its database, if it is one. 0, or -1, logged.
int32_t load_section(db_section& section) QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  g_db_section = &section;
  int32_t result = load_conf_helper(g_core_ctrl->conf_dir.c_str(), kDbConfFile,
                                    section.heading.c_str(), read_db_config, nullptr, nullptr, 0);
  g_db_section = nullptr;
  if (!is_whole(section)) {
    QVN_LOG(kLogWarning, "The db info %s configure invalid\n", section.name.c_str());
    result = -1;
  }
  // An invalid section is refused there with a line of its own.
  (void)db_info_add(section.host, section.port, section.name, section.user, section.password);
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

void stage_port(uint32_t number) QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  g_db_section->port = static_cast<uint16_t>(number);  // has been cut
}

constexpr qvn_number_setting kPort = {
    kLogSource, stage_port, 0, UINT16_MAX, "The listen database listen port MUST be configurate\n",
    ""};

int32_t stage_text(std::string& staged, const char* value, const char* when_empty,
                   int line = __builtin_LINE()) {
  if (zstr(value)) {
    return qvn_conf_refuse(when_empty, kLogSource, line);
  }
  return qvn_conf_assign(staged, value) ? 0 : -1;
}

int32_t stage_host(const char* value) QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  return stage_text(g_db_section->host, value, "The listen database host MUST be configurate\n");
}

int32_t stage_name(const char* value) QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  return stage_text(g_db_section->name, value, "The listen database name MUST be configurate\n");
}

int32_t stage_user(const char* value) QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  return stage_text(g_db_section->user, value,
                    "The listen database login user MUST be configurate\n");
}

int32_t stage_password(const char* value) QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  return stage_text(g_db_section->password, value,
                    "The listen database login password MUST be configurate\n");
}

constexpr qvn_setting kSettings[] = {
    {"db_host", stage_host},
    {"db_listen_port", qvn_conf_read_number<kPort>, &kPort},
    {"db_name", stage_name},
    {"db_user", stage_user},
    {"db_user_password", stage_password, nullptr, 0, true},
};

}  // namespace

qvn_db_key qvn_db_key_make(const std::string& host, const std::string& name) {
  qvn_db_key key;
  (void)std::snprintf(key.text, sizeof key.text, "%s-%s", host.c_str(), name.c_str());
  return key;
}

db_info* database_table::find(const char* key) const {
  return reinterpret_cast<db_info*>(qvn_hash_find(&table_, key));
}

bool database_table::insert(const char* key, std::unique_ptr<db_info> entry) {
  if (qvn_hash_insert(&table_, key, reinterpret_cast<qvn_hash_value>(entry.get())) != 0) {
    return false;
  }
  (void)entry.release();  // the table owns it now
  return true;
}

void database_table::clear() {
  for (db_info& database : *this) {
    db_info* entry = &database;
    db_info_free(&entry);
  }
  qvn_hash_clear(&table_);
}

int32_t qvn_db_conf_init() {
  const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
  try {
    g_core_ctrl->db_table = std::make_shared<database_table>();
  } catch (const std::bad_alloc&) {
    QVN_LOG(kLogError, "Alloc memory for client db info hash table failed\n");
    return -1;
  }
  return 0;
}

int32_t load_db_info() {
  section_list sections;
  if (!load_db_section_name(sections)) {
    QVN_LOG(kLogError, "Loading database section configure failed\n");
    return -1;
  }
  const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
  int32_t result = 0;
  for (; !sections.empty(); sections.pop_front()) {
    result |= load_section(sections.front());
  }
  return result;
}

int32_t reload_db_info() {
  {
    const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
    g_core_ctrl->db_table->clear();
  }
  return load_db_info();
}

int32_t db_info_add(const std::string& host, uint16_t port, const std::string& name,
                    const std::string& user, const std::string& password) {
  const qvn_db_key key = qvn_db_key_make(host, name);
  if (g_core_ctrl->db_table->find(key.text)) {
    QVN_LOG(kLogNotice, "The db host %s dbname %s have been in the db list\n", host.c_str(),
            name.c_str());
    return 0;
  }
  std::unique_ptr<db_info> entry = make_entry(host, port, name, user, password);
  if (!entry || !is_whole(*entry) || !g_core_ctrl->db_table->insert(key.text, std::move(entry))) {
    QVN_LOG(kLogError, "Alloc memory for db info %s failed\n", key.text);
    return -1;
  }
  QVN_LOG(kLogNotice, "Added a new db host %s dbname %s\n", host.c_str(), name.c_str());
  return 0;
}

void db_info_free(db_info** entry) {
  delete *entry;
  *entry = nullptr;
}

void db_info_task_sub(const std::string& key, job_kind kind) {
  const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
  db_info* const entry = g_core_ctrl->db_table->find(key.c_str());
  if (!entry) {
    return;
  }
  const bool is_rerate = kind == job_kind::rerate;
  uint16_t& count = is_rerate ? entry->rerate_count : entry->rate_upload_count;
  if (count > 0) {
    --count;
  }
  QVN_LOG(kLogDebug, "%s remove %s task, current task count %d\n", key.c_str(),
          is_rerate ? "rerate" : "import rate", count);
}

std::span<const qvn_setting> qvn_db_settings() {
  return kSettings;
}

int32_t read_db_config(const char* key, const char* value) {
  db_section unasked;  // outside load_db_info a value is judged and dropped
  const bool asked = g_db_section != nullptr;
  g_db_section = asked ? g_db_section : &unasked;
  const int32_t result = qvn_setting_read(kSettings, key, value);
  g_db_section = asked ? g_db_section : nullptr;
  return result;
}
