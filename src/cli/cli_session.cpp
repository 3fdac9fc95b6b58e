#include "cli/cli_session.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <utility>

#include "base/qvn_log.h"
#include "base/qvn_thread.h"
#include "base/qvn_time.h"
#include "cli/cli_commands.h"
#include "cli/cli_receive.h"
#include "core/qvn_core_ctrl.h"

namespace {

constexpr const char* kLogSource = "qvn_cli_server";

/// How often a connection is read before its thread rests a little: a client that streams without
/// end costs next to nothing.
constexpr int kReadsPerTurn = 8;
constexpr uint32_t kRestMilliseconds = 250;

/// The idle limit of a connection. A clock that was stepped back does not prolong it.
void renew(cli_connection& connection) {
  connection.expires = std::time(nullptr) + g_core_ctrl->cli_connection_expires;
}

bool is_expired(cli_connection& connection) {
  const int64_t now = std::time(nullptr);
  connection.expires = std::min(connection.expires, now + g_core_ctrl->cli_connection_expires);
  return now >= connection.expires;
}

/// The commands that are answered.
constexpr std::pair<cli_method, void (*)(const cli_connection&, std::string_view)> kCommands[] = {
    {cli_method::get_conf, get_conf_request_proc},
    {cli_method::reload_conf, reload_conf_request_proc},
    {cli_method::help, cmd_help_request_proc},
};

void carry_out(cli_connection& connection, cli_method method, std::string_view arguments) {
  connection.logout |= method == cli_method::logout;
  for (const auto& [command, answer] : kCommands) {
    if (command == method) {
      answer(connection, arguments);
    }
  }
}

void serve_request(cli_connection& connection, cli_method method, std::string_view arguments,
                   const char* shown) {
  const cli_peer peer = cli_peer_of(connection);
  QVN_LOG(kLogDebug, "Recv client %s:%d request: '%s'\n", peer.address, peer.port, shown);
  if (method != cli_method::unknown) {
    renew(connection);
    carry_out(connection, method, arguments);
  }
}

void log_end(const cli_connection& connection, int error) {
  const cli_peer peer = cli_peer_of(connection);
  if (error == 0) {
    QVN_LOG(kLogInfo, "The client %s%d has performed an orderly shutdown\n", peer.address,
            peer.port);
    return;
  }
  QVN_LOG(kLogInfo, "The CLI %s:%d recv error %s\n", peer.address, peer.port, std::strerror(error));
}

/// Reads and carries out what has come; whether the connection goes on. A logout counts when there
/// is nothing more to read: closing a socket with input unread would take the answers from the
/// client.
bool serve_input(cli_connection& connection) {
  const auto on_request = [&](cli_method method, std::string_view arguments, const char* shown) {
    serve_request(connection, method, arguments, shown);
  };
  const auto on_invalid = [](const char* shown) {
    QVN_LOG(kLogInfo, "Receive invalid msg from client [%s]\n", shown);
  };
  const cli_turn turn = cli_read_turn<kSessionReadSize>(
      connection.fd.get(), kReadsPerTurn, [&](std::string_view received) {
        connection.requests.read(received, on_request, on_invalid);
        return true;
      });
  if (turn.state == cli_turn::ended) {
    log_end(connection, turn.error);
    return false;
  }
  if (turn.state == cli_turn::unfinished) {
    qvn_msleep(kRestMilliseconds);
    return true;
  }
  return !connection.logout;
}

void serve(cli_connection& connection) {
  constexpr int kLookAtExitFlag = 1000;  // milliseconds
  static constexpr std::string_view kWelcome = "Welcome to web helper\r\n";
  // A send that fails is logged there, and the next read ends the connection.
  (void)qvn_tcp_reliable_send(connection.fd.get(), kWelcome.data(), kWelcome.size());
  renew(connection);
  while (g_cli_server_ctrl->exit != 1 && !is_expired(connection)) {
    const int patience = connection.logout ? 0 : kLookAtExitFlag;
    const qvn_input input = qvn_wait_for_input(connection.fd.get(), patience);
    if (input == qvn_input::broken) {
      QVN_LOG(kLogInfo, "%s", "The CLI socket select error, disconnected this connection\n");
      return;
    }
    if (input == qvn_input::none ? connection.logout : !serve_input(connection)) {
      return;
    }
  }
}

void take_off_list(const cli_connection* connection) QVN_REQUIRES(g_cli_server_ctrl->mutex) {
  for (cli_connection** link = &g_cli_server_ctrl->auth_list; *link; link = &(*link)->next) {
    if (*link == connection) {
      *link = connection->next;
      --g_cli_server_ctrl->auth_count;
      return;
    }
  }
}

void* cli_threand_run(void* argument) noexcept {
  std::unique_ptr<cli_connection> connection(static_cast<cli_connection*>(argument));
  char name[32];
  (void)std::snprintf(name, sizeof name, "console %d", connection->fd.get());
  qvn_thread_set_name(name);
  serve(*connection);
  const cli_peer peer = cli_peer_of(*connection);
  QVN_LOG(kLogInfo, "Stop CLI  '%s:%d' task process, fd as %d\n", peer.address, peer.port,
          connection->fd.get());
  {
    const qvn_lock_guard guard(g_cli_server_ctrl->mutex);
    take_off_list(connection.get());
  }
  connection.reset();
  const qvn_lock_guard guard(g_cli_server_ctrl->mutex);
  --g_cli_server_ctrl->live_threads;
  g_cli_server_ctrl->session_ended.signal();
  return nullptr;
}

}  // namespace

void cli_session_start(cli_connection* connection) {
  std::unique_ptr<cli_connection> owned(connection);
  const cli_peer peer = cli_peer_of(*connection);
  QVN_LOG(kLogInfo, "Start CLI '%s:%d' task process, fd as %d\n", peer.address, peer.port,
          connection->fd.get());
  const qvn_lock_guard guard(g_cli_server_ctrl->mutex);
  const int error = create_detached_thread(cli_threand_run, connection);
  if (error != 0) {
    QVN_LOG(kLogError, "CLI '%s:%d' thread can't be started, %s\n", peer.address, peer.port,
            std::strerror(error));
    return;
  }
  owned->next = g_cli_server_ctrl->auth_list;
  g_cli_server_ctrl->auth_list = owned.release();
  ++g_cli_server_ctrl->auth_count;
  ++g_cli_server_ctrl->live_threads;
}
