/// One connection that has logged in, in its own thread.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <poll.h>
#include <sys/socket.h>

#include "base/qvn_log.h"
#include "base/qvn_thread.h"
#include "base/qvn_time.h"
#include "cli/cli_connection.h"
#include "cli/cli_protocol.h"
#include "core/qvn_core_ctrl.h"

namespace {

constexpr const char* kLogSource = "qvn_cli_server";

/// How often a connection is read before its thread rests a little: a client that streams without
/// end costs next to nothing.
constexpr int kReadsATurn = 8;
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

/// Carries out one line.
void request_line(cli_connection& connection, char* line) {
  const cli_request request = cli_request_split(line);
  const cli_method method = cli_method_find(request.word);
  const cli_peer peer = cli_peer_of(connection);
  QVN_LOG(kLogDebug, "Recv client %s:%d request: '%s'\n", peer.address, peer.port,
          cli_masked(line));
  if (method == cli_method::unknown) {
    return;
  }
  renew(connection);
  switch (method) {
    case cli_method::get_conf:
      get_conf_request_proc(connection, request.arguments);
      break;
    case cli_method::reload_conf:
      reload_conf_request_proc(connection, request.arguments);
      break;
    case cli_method::help:
      cmd_help_request_proc(connection, request.arguments);
      break;
    case cli_method::logout:
      connection.logout = true;
      break;
    case cli_method::unknown:
    case cli_method::heartbeat:
    case cli_method::login:
      break;
  }
}

/// Carries out the lines of what came.
void request_bytes(cli_connection& connection, std::string_view bytes) {
  connection.buffer.feed(
      bytes, kSessionLimits, [&](char* line) { request_line(connection, line); },
      [](char* line) {
        QVN_LOG(kLogInfo, "Receive invalid msg from client [%s]\n", cli_masked(line));
      });
}

/// Reads and carries out what has come; whether the connection goes on. A logout counts when there
/// is nothing more to read: closing a socket with input unread would take the answers from the
/// client.
bool serve_input(cli_connection& connection) {
  for (int reads = 0; reads < kReadsATurn; ++reads) {
    char bytes[kSessionReadSize];
    const ssize_t length = recv(connection.fd.get(), bytes, sizeof bytes, MSG_DONTWAIT);
    if (length > 0) {
      request_bytes(connection, {bytes, static_cast<std::size_t>(length)});
      continue;
    }
    const int error = errno;
    const cli_peer peer = cli_peer_of(connection);
    if (length == 0) {
      QVN_LOG(kLogInfo, "The client %s%d has performed an orderly shutdown\n", peer.address,
              peer.port);
      return false;
    }
    if (error != EAGAIN && error != EWOULDBLOCK && error != EINTR) {
      QVN_LOG(kLogInfo, "The CLI %s:%d recv error %s\n", peer.address, peer.port,
              std::strerror(error));
      return false;
    }
    return !connection.logout;
  }
  qvn_msleep(kRestMilliseconds);
  return true;
}

enum class input { none, ready, broken };

input wait_for_input(const cli_connection& connection) {
  constexpr int kLookAtExitFlag = 1000;  // milliseconds
  pollfd entry{.fd = connection.fd.get(), .events = POLLIN, .revents = 0};
  const int count = poll(&entry, 1, connection.logout ? 0 : kLookAtExitFlag);
  if (count == 0) {
    return input::none;
  }
  // The end of a connection is read like input.
  return count > 0 && (entry.revents & (POLLIN | POLLHUP | POLLERR)) != 0 ? input::ready
                                                                          : input::broken;
}

void serve(cli_connection& connection) {
  static constexpr std::string_view kWelcome = "Welcome to web helper\r\n";
  connection.buffer.clear();
  // A send that fails is logged there, and the next read ends the connection.
  (void)qvn_tcp_reliable_send(connection.fd.get(), kWelcome.data(), kWelcome.size());
  renew(connection);
  while (g_cli_server_ctrl->exit != 1 && !is_expired(connection)) {
    switch (wait_for_input(connection)) {
      case input::none:
        if (connection.logout) {
          return;
        }
        break;
      case input::broken:
        QVN_LOG(kLogInfo, "%s", "The CLI socket select error, disconnected this connection\n");
        return;
      case input::ready:
        if (!serve_input(connection)) {
          return;
        }
        break;
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
