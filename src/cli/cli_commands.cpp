#include "cli/cli_commands.h"

#include <new>
#include <poll.h>
#include <string>

#include "base/qvn_log.h"
#include "base/qvn_socket.h"
#include "base/qvn_text.h"
#include "core/qvn_core_ctrl.h"
#include "db/qvn_db_conf.h"

namespace {

constexpr const char* kLogSource = "qvn_cli_server";

/// Forms a piece of an answer and sends it; false without memory or connection. A send that fails
/// is logged there, and the next read ends the connection.
template <class Form>
bool answer(const cli_connection& connection, Form form) {
  try {
    const std::string text = form();
    return qvn_tcp_reliable_send(connection.fd.get(), text.data(), text.size()) >= 0;
  } catch (const std::bad_alloc&) {
    QVN_LOG(kLogError, "Alloc memory for CLI answer failed\n");
    return false;
  }
}

constexpr std::string_view kSeparator =
    "---------------------+-------+--------------------------------+--------------------------"
    "------+--------------------------------\r\n";
static_assert(kSeparator.size() == 130);

std::string list_head() {
  return qvn_format("%20s | %5s | %30s | %30s | %30s \r\n", "Host", "Port", "Dbname", "Username",
                    "password") +
         std::string(kSeparator);
}

/// The served databases, passwords included. Rows have a fixed length: a row whose fields are too
/// wide is cut, its line end with it.
std::string list_rows() QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  std::string text;
  int rows = 0;
  for (const db_info& database : *g_core_ctrl->db_table) {
    text += qvn_format("%20s | %5d | %30s | %30s | %30s \r\n", database.host.c_str(), database.port,
                       database.name.c_str(), database.user.c_str(), database.password.c_str())
                .substr(0, kSeparator.size());
    ++rows;
  }
  return text + qvn_format("(%d rows)\r\n", rows);
}

/// Whether the client may still read an answer. One that has left shows it once it is sent
/// something; one that has only ended its own side is still there.
bool is_there(const cli_connection& connection) {
  pollfd entry{.fd = connection.fd.get(), .events = 0, .revents = 0};
  return poll(&entry, 1, 0) == 0;
}

/// The rows, and `end` after them; nothing when the client leaves while the poller holds the list:
/// its place is free for another one then.
std::string rows_for(const cli_connection& connection, const char* end) {
  if (!g_core_ctrl->db_list_lock.lock_while([&] { return is_there(connection); })) {
    return {};
  }
  const qvn_lock_guard guard(g_core_ctrl->db_list_lock, qvn_is_held{});
  return list_rows() + end;
}

void send_list(const cli_connection& connection, const char* end) {
  if (answer(connection, list_head)) {
    (void)answer(connection, [&] { return rows_for(connection, end); });
  }
}

}  // namespace

void cmd_help_request_proc(const cli_connection& connection, std::string_view /*arguments*/) {
  (void)answer(connection, [] {
    return qvn_format("\nCLI command list\n%20s\t%s\r\n", "----------Command",
                      "Description------------------------------") +
           qvn_format("%20s\t%s\r\n", "get_conf", "show current configuration") +
           qvn_format("%20s\t%s\r\n", "reload_conf", "reload configuration");
  });
}

void get_conf_request_proc(const cli_connection& connection, std::string_view /*arguments*/) {
  send_list(connection, "");
}

void reload_conf_request_proc(const cli_connection& connection, std::string_view /*arguments*/) {
  send_list(connection, reload_db_info() == 0
                            ? "\n\nDB configuration file is reloaded successfully\r\n"
                            : "\n\nDB configuration file is reloaded failed\r\n");
}
