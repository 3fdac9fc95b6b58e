/// One console connection and the control record of the server.
///
/// A connection is in exactly one list: `init_list`, the listener's alone, until its login, then
/// `auth_list`, under the server's mutex, and served by a thread of its own.
#pragma once

#include <atomic>
#include <cstdint>
#include <netinet/in.h>
#include <pthread.h>

#include "base/qvn_fd.h"
#include "base/qvn_mutex.h"
#include "cli/cli_protocol.h"

struct cli_connection {
  qvn_fd fd;
  sockaddr_in addr{};           ///< the peer
  int64_t expires = 0;          ///< seconds since the epoch after which it is closed
  cli_login_reader logins;      ///< the listener's
  cli_request_reader requests;  ///< the connection thread's
  bool paused = false;          ///< not read to its end; to be continued
  bool logout = false;          ///< ends when all that has come has been read
  cli_connection* next = nullptr;
};

struct cli_server_ctrl {
  pthread_t thread{};             ///< the listener
  bool started = false;           ///< main thread only
  std::atomic<uint8_t> exit = 0;  ///< 1: stop
  qvn_fd listen_fd;
  qvn_fd epoll_fd;

  qvn_mutex mutex;
  qvn_condition session_ended;
  cli_connection* auth_list QVN_GUARDED_BY(mutex) = nullptr;
  uint32_t auth_count QVN_GUARDED_BY(mutex) = 0;
  /// Connection threads that may still touch this record; lowered later than `auth_count`.
  uint32_t live_threads QVN_GUARDED_BY(mutex) = 0;

  // The listener's own, and the main thread's before it starts and after it has ended.
  int64_t next_check = 0;  ///< when expired initial connections are swept, seconds since the epoch
  cli_connection* init_list = nullptr;  ///< the newest first
  uint32_t init_count = 0;
  bool accept_paused = false;  ///< more may wait to be accepted
};

/// Null before qvn_cli_server_init and after qvn_cli_server_uninit.
extern cli_server_ctrl* g_cli_server_ctrl;

/// A peer as messages show it.
struct cli_peer {
  char address[INET_ADDRSTRLEN];
  int port;
};
[[nodiscard]] cli_peer cli_peer_of(const cli_connection& connection);
