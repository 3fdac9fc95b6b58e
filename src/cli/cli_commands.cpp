/// What the console's commands answer.

#include <new>
#include <string>

#include "base/qvn_hash.h"
#include "base/qvn_log.h"
#include "base/qvn_text.h"
#include "cli/cli_connection.h"
#include "core/qvn_core_ctrl.h"
#include "db/qvn_db_conf.h"

namespace {

constexpr const char* kLogSource = "qvn_cli_server";

/// Forms an answer and sends it; without memory there is none. A send that fails is logged there,
/// and the next read ends the connection.
template <class Form>
void answer(const cli_connection& connection, Form form) {
  try {
    const std::string text = form();
    (void)qvn_tcp_reliable_send(connection.fd.get(), text.data(), text.size());
  } catch (const std::bad_alloc&) {
    QVN_LOG(kLogError, "Alloc memory for CLI answer failed\n");
  }
}

/// The served databases, passwords included. Rows have a fixed length: a row whose fields are too
/// wide is cut, its line end with it.
std::string database_list() {
  static constexpr std::string_view kSeparator =
      "---------------------+-------+--------------------------------+--------------------------"
      "------+--------------------------------\r\n";
  static_assert(kSeparator.size() == 130);
  std::string text = qvn_format("%20s | %5s | %30s | %30s | %30s \r\n", "Host", "Port", "Dbname",
                                "Username", "password");
  text += kSeparator;
  int rows = 0;
  const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
  for (const auto* element = g_core_ctrl->db_table->first; element; element = element->next) {
    const auto* const database = reinterpret_cast<const db_info*>(element->data);
    if (!database) {
      continue;
    }
    text +=
        qvn_format("%20s | %5d | %30s | %30s | %30s \r\n", database->host.c_str(), database->port,
                   database->name.c_str(), database->user.c_str(), database->password.c_str())
            .substr(0, kSeparator.size());
    ++rows;
  }
  return text + qvn_format("(%d rows)\r\n", rows);
}

}  // namespace

void cmd_help_request_proc(const cli_connection& connection, std::string_view /*arguments*/) {
  answer(connection, [] {
    return qvn_format("\nCLI command list\n%20s\t%s\r\n", "----------Command",
                      "Description------------------------------") +
           qvn_format("%20s\t%s\r\n", "get_conf", "show current configuration") +
           qvn_format("%20s\t%s\r\n", "reload_conf", "reload configuration");
  });
}

void get_conf_request_proc(const cli_connection& connection, std::string_view /*arguments*/) {
  answer(connection, database_list);
}

void reload_conf_request_proc(const cli_connection& connection, std::string_view /*arguments*/) {
  const bool reloaded = reload_db_info() == 0;
  answer(connection, [&] {
    return database_list() + qvn_format("\n\nDB configuration file is reloaded %s\r\n",
                                        reloaded ? "successfully" : "failed");
  });
}
