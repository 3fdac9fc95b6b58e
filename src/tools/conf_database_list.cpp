#include "tools/conf_database_list.h"

#include <arpa/inet.h>
#include <libpq-fe.h>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <string_view>

#include "base/qvn_conf_setting.h"
#include "core/qvn_core_ctrl.h"
#include "db/qvn_db_conf.h"
#include "tools/conf_layout.h"
#include "tools/conf_section.h"

namespace {

/// The values that a section has given to the daemon, by their settings.
using section_values = std::map<const qvn_setting*, std::string>;

section_values values_of(const recorded_reading& reading) {
  section_values values;
  for (const recorded_line& line : reading.lines) {
    const qvn_setting* const setting = qvn_setting_find(qvn_db_settings(), line.key.c_str());
    if (setting && line.fate == conf_fate::taken) {
      values[setting] = line.value;
    }
  }
  return values;
}

const std::string& value_of(const section_values& values, const char* key) {
  return values.at(qvn_setting_find(qvn_db_settings(), key));
}

struct option_list_free {
  void operator()(PQconninfoOption* options) const noexcept { PQconninfoFree(options); }
};
using option_list = std::unique_ptr<PQconninfoOption, option_list_free>;

/// What libpq makes of a keyword of the connection string.
std::string_view understood(const option_list& options, std::string_view keyword) {
  for (const PQconninfoOption* option = options.get(); option && option->keyword; ++option) {
    if (keyword == option->keyword) {
      return option->val ? option->val : "";
    }
  }
  return "";
}

int32_t judge_value(const char* key, const char* value) {
  const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
  return read_db_config(key, value);
}

/// The sections, the last one of the file first, as the daemon reads them.
std::vector<recorded_reading> read_as_daemon(const conf_layout& layout) {
  std::vector<recorded_reading> readings;
  for (auto line = layout.lines().rbegin(); line != layout.lines().rend(); ++line) {
    if (line->kind == conf_kind::header && !line->key.empty()) {
      readings.push_back(layout.read(line->key.substr(0, kMostSectionCharacters), judge_value));
    }
  }
  return readings;
}

/// Reports on the sections of the list in the order in which the daemon reads them.
struct list_check {
  const database_table& table;
  const conf_layout& layout;
  const std::set<std::string>& references;
  conf_findings& findings;
  std::set<std::string> sections{};      ///< that have been looked at
  std::map<std::string, int> headers{};  ///< of the databases, by their keys
  std::vector<conf_database> databases{};

  void check(const recorded_reading& reading) {
    if (!sections.insert(reading.section).second) {
      return;
    }
    const recorded_line* const header = layout.header(reading.section);
    if (!header) {
      report_not_found(reading.section);
      return;
    }
    conf_check_section(reading, {qvn_db_settings(), {}, references}, findings);
    const section_values values = values_of(reading);
    if (check_whole(*header, values)) {
      check_entry(*header, values);
    }
  }

  /// The daemon keeps a long name cut, and then does not find the section.
  void report_not_found(const std::string& section) {
    const recorded_line* const header = layout.header_beginning(section);
    findings.add(header ? header->number : 0,
                 "the section's name is longer than " + std::to_string(section.size()) +
                     " characters: the daemon does not start",
                 kUnusable);
  }

  bool check_whole(const recorded_line& header, const section_values& values) {
    std::string missing;
    for (const qvn_setting& setting : qvn_db_settings()) {
      if (!values.contains(&setting)) {
        missing += (missing.empty() ? "" : ", ") + std::string(setting.key);
      }
    }
    const std::string section = "section [" + header.key + "] ";
    if (!missing.empty()) {
      findings.add(header.number, section + "has no " + missing + ": the daemon does not start",
                   kUnusable);
      return false;
    }
    const qvn_setting& port = *qvn_setting_find(qvn_db_settings(), "db_listen_port");
    if (qvn_setting_stored(*port.number, values.at(&port).c_str()) <= kHighestSystemPort) {
      findings.add(header.number,
                   section + "has a db_listen_port below " +
                       std::to_string(kHighestSystemPort + 1) + ": the daemon does not start",
                   kUnusable);
      return false;
    }
    return true;
  }

  void check_entry(const recorded_line& header, const section_values& values) {
    const std::string key =
        qvn_db_key_make(value_of(values, "db_host"), value_of(values, "db_name")).text;
    const auto [known, is_new] = headers.emplace(key, header.number);
    if (!is_new) {
      findings.add(header.number, "section [" + header.key + "] is dropped: the one in line " +
                                      std::to_string(known->second) +
                                      ", further down, has the same db_host and db_name");
      return;
    }
    // A string that libpq does not understand is not tried: the complaint would hold pieces of it.
    const db_info* const entry = table.find(key.c_str());
    if (entry && check_connection_string(header, *entry)) {
      databases.push_back({header.key, header.number, entry->conninfo});
    }
  }

  /// False when libpq would take the connection string as something else than was meant.
  bool check_connection_string(const recorded_line& header, const db_info& entry) {
    const option_list options(PQconninfoParse(entry.conninfo.c_str(), nullptr));
    const std::pair<const char*, std::pair<const char*, const std::string*>> expected[] = {
        {"db_host", {"hostaddr", &entry.host}},
        {"db_name", {"dbname", &entry.name}},
        {"db_user", {"user", &entry.user}},
        {"db_user_password", {"password", &entry.password}}};
    const std::string section = "section [" + header.key + "]: ";
    bool as_written = true;
    for (const auto& [key, keyword] : expected) {
      if (understood(options, keyword.first) != *keyword.second) {
        findings.add(header.number, section + key +
                                        " does not reach the server as written: a quote, a "
                                        "backslash, a tab, or all values together are too long");
        as_written = false;
      }
    }
    in6_addr address;
    if (inet_pton(AF_INET, entry.host.c_str(), &address) != 1 &&
        inet_pton(AF_INET6, entry.host.c_str(), &address) != 1) {
      findings.add(header.number,
                   section + "db_host is not a numeric address, it cannot be reached");
    }
    return as_written;
  }
};

}  // namespace

std::vector<conf_database> conf_check_database_list(conf_findings& findings) {
  const conf_layout layout(kDbConfFile);
  if (qvn_db_conf_init() != 0) {
    throw std::bad_alloc();
  }
  const bool starts = load_db_info() == 0;
  const std::vector<recorded_reading> readings = read_as_daemon(layout);
  const std::set<std::string> references = conf_references(readings);
  const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
  list_check check{*g_core_ctrl->db_table, layout, references, findings};
  for (const recorded_reading& reading : readings) {
    check.check(reading);
  }
  layout.check_headers(findings);
  layout.check_long_lines(findings);
  if (!starts && findings.status() != kUnusable) {
    findings.add(0, "the daemon does not start with this file", kUnusable);
  }
  return std::move(check.databases);
}
