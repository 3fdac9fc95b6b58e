#include "tools/conf_main_file.h"

#include <algorithm>
#include <arpa/inet.h>
#include <new>
#include <set>
#include <strings.h>

#include "base/qvn_socket.h"
#include "core/qvn_core_ctrl.h"
#include "core/qvn_settings.h"
#include "rate_upload/qvn_rate_upload.h"
#include "rerate/qvn_rerate.h"
#include "tools/conf_layout.h"
#include "tools/conf_section.h"

namespace {

/// The sections in the order in which the daemon reads them. The modules' directories are there
/// only while the modules are.
std::vector<recorded_reading> read_as_daemon(const conf_layout& layout,
                                             std::span<const qvn_conf_section> sections) {
  if (qvn_default_conf_init() != 0 || qvn_rerate_init() != 0 || qvn_rate_upload_init() != 0) {
    throw std::bad_alloc();
  }
  std::vector<recorded_reading> readings;
  for (const qvn_conf_section& section : sections) {
    readings.push_back(layout.read(section.name, section.handler));
  }
  (void)qvn_rate_upload_uninit();
  (void)qvn_rerate_uninit();
  return readings;
}

void check_unknown_sections(const conf_layout& layout, std::span<const qvn_conf_section> sections,
                            const std::set<std::string>& references, conf_findings& findings) {
  for (const recorded_line& line : layout.lines()) {
    const std::string& name = line.key;
    const auto is = [&](const qvn_conf_section& section) { return name == section.name; };
    const auto resembles = [&](const qvn_conf_section& section) {
      return strcasecmp(name.c_str(), section.name) == 0;
    };
    const auto refers = [&](const std::string& reference) {
      return reference.starts_with(name + ".$");
    };
    if (line.kind != conf_kind::header || line.continued || name.empty() ||
        std::ranges::any_of(references, refers) || layout.header(name) != &line ||
        std::ranges::any_of(sections, is)) {
      continue;
    }
    const auto alike = std::ranges::find_if(sections, resembles);
    findings.add(line.number,
                 "section [" + name + "] is not read" +
                     (alike == sections.end() ? "" : ": write [" + std::string(alike->name) + "]"));
  }
}

/// The daemon ends when its console cannot listen; without an address it cannot be reached.
void check_console(const recorded_reading& reading, conf_findings& findings) {
  const auto is_address = [](const recorded_line& line) {
    return line.fate == conf_fate::taken && strcasecmp(line.key.c_str(), "cli_listen_ip") == 0;
  };
  const auto last = std::find_if(reading.lines.rbegin(), reading.lines.rend(), is_address);
  if (last == reading.lines.rend()) {
    return;
  }
  const char* const address = g_core_ctrl->cli_listen_ip;
  if (inet_addr(address) == INADDR_NONE) {
    findings.add(last->number,
                 last->key + ": not a numeric IPv4 address, nobody reaches the console");
  } else if (!qvn_fd(qvn_tcp_socket_and_listen(address, 0, 1)).is_open()) {
    findings.add(last->number,
                 last->key + ": this machine does not have the address, the daemon does not start",
                 kUnusable);
  }
}

}  // namespace

void conf_check_main_file(conf_findings& findings) {
  const qvn_conf_section sections[] = {qvn_general_section(), qvn_cli_section(),
                                       qvn_rerate_section(), qvn_rate_upload_section()};
  const conf_layout layout(kMainConfFile);
  const std::vector<recorded_reading> readings = read_as_daemon(layout, sections);
  const std::set<std::string> references = conf_references(readings);
  for (std::size_t i = 0; i < readings.size(); ++i) {
    conf_check_section(readings[i], {sections[i].settings, sections, references}, findings);
    layout.check_unread(readings[i], findings);
    check_console(readings[i], findings);
  }
  layout.check_headers(findings);
  layout.check_long_lines(findings);
  check_unknown_sections(layout, sections, references, findings);
  if (qvn_check_config() != 0 || !qvn_settings_whole()) {
    findings.add(0, "the daemon does not start with this file", kUnusable);
  }
}
