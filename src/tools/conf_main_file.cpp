#include "tools/conf_main_file.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <new>
#include <set>
#include <strings.h>

#include "base/qvn_socket.h"
#include "core/qvn_core_ctrl.h"
#include "core/qvn_settings.h"
#include "rate_upload/qvn_rate_upload.h"
#include "rerate/qvn_rerate.h"
#include "tools/conf_installation.h"
#include "tools/conf_layout.h"
#include "tools/conf_section.h"

namespace {

/// The sections in the order in which the daemon reads them. The modules' directories are there
/// only while the modules are.
std::vector<recorded_reading> read_as_daemon(const conf_layout& layout,
                                             std::span<const qvn_conf_section> sections,
                                             conf_result_folders& folders) {
  if (qvn_default_conf_init() != 0 || qvn_rerate_init() != 0 || qvn_rate_upload_init() != 0) {
    throw std::bad_alloc();
  }
  std::vector<recorded_reading> readings;
  for (const qvn_conf_section& section : sections) {
    readings.push_back(layout.read(section.name, section.handler));
  }
  folders = {qvn_rate_upload_result_directory(), qvn_rerate_cdr_directory()};
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

/// The line of the section that gives the setting its value, be it a bad one, or null.
const recorded_line* line_of(const recorded_reading& reading, const char* key) {
  const auto gives = [&](const recorded_line& line) {
    return (line.fate == conf_fate::taken || line.fate == conf_fate::stopped) &&
           strcasecmp(line.key.c_str(), key) == 0;
  };
  const auto last = std::find_if(reading.lines.rbegin(), reading.lines.rend(), gives);
  return last == reading.lines.rend() ? nullptr : &*last;
}

int number_of(const recorded_line* line) {
  return line ? line->number : 0;
}

/// 0, or the error number.
int try_to_listen(const char* address, uint16_t port) {
  errno = 0;
  return qvn_fd(qvn_tcp_socket_and_listen(address, port, 1)).is_open() ? 0 : errno;
}

/// The daemon ends when its console cannot listen; without an address it cannot be reached.
void check_address(const recorded_reading& console, conf_findings& findings) {
  const int line = number_of(line_of(console, "cli_listen_ip"));
  const char* const address = g_core_ctrl->cli_listen_ip;
  const uint16_t port = g_core_ctrl->cli_listen_port;
  if (inet_addr(address) == INADDR_NONE) {
    findings.add(line, "cli_listen_ip: not a numeric IPv4 address, the console cannot be reached");
  } else if (try_to_listen(address, 0) != 0) {
    findings.add(line,
                 "cli_listen_ip: this machine does not have the address, the daemon does not start",
                 kUnusable);
  } else if (conf_is_installation() && !conf_daemon_runs()) {
    // A daemon that runs has the port itself, and is not started.
    if (const int error = try_to_listen(address, port)) {
      findings.add(number_of(line_of(console, "cli_listen_port")),
                   "cli_listen_port: " + std::to_string(port) + " cannot be listened on, " +
                       std::strerror(error) + ": the daemon does not start",
                   kUnusable);
    }
  }
}

bool is_digest(const std::string& text) {
  constexpr std::size_t kDigits = 32;
  return text.size() == kDigits && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

/// The client on the same machine applies no defaults, and sends a digest of user and password that
/// the daemon compares with the password as it stands.
void check_client(const recorded_reading& console, conf_findings& findings) {
  const recorded_line* const address = line_of(console, "cli_listen_ip");
  const recorded_line* const port = line_of(console, "cli_listen_port");
  if (!address || !port) {
    findings.note(number_of(address ? address : port),
                  "-r needs both cli_listen_ip and cli_listen_port in section [CLI]");
  }
  const recorded_line* const user = line_of(console, "cli_login_user");
  const recorded_line* const password = line_of(console, "cli_login_pwd");
  if (!user != !password) {
    findings.add(number_of(user ? user : password),
                 "cli_login_user and cli_login_pwd are not both set: every login is accepted");
  } else if (password && !is_digest(password->value)) {
    findings.note(password->number,
                  "cli_login_pwd: -r with this file is refused, since it sends the digest of "
                  "cli_login_user and cli_login_pwd");
  }
}

}  // namespace

conf_result_folders conf_check_main_file(conf_findings& findings) {
  constexpr std::size_t kConsole = 1;
  const qvn_conf_section sections[] = {qvn_general_section(), qvn_cli_section(),
                                       qvn_rerate_section(), qvn_rate_upload_section()};
  const conf_layout layout(kMainConfFile);
  conf_result_folders folders;
  const std::vector<recorded_reading> readings = read_as_daemon(layout, sections, folders);
  const std::set<std::string> references = conf_references(readings);
  for (std::size_t i = 0; i < readings.size(); ++i) {
    conf_check_section(readings[i], {sections[i].settings, sections, references}, findings);
    layout.check_unread(readings[i], findings);
  }
  check_address(readings[kConsole], findings);
  check_client(readings[kConsole], findings);
  layout.check_headers(findings);
  layout.check_long_lines(findings);
  check_unknown_sections(layout, sections, references, findings);
  if (qvn_check_config() != 0 || !qvn_settings_whole()) {
    findings.add(0, "the daemon does not start with this file", kUnusable);
  }
  return folders;
}
