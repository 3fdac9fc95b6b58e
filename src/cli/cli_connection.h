/// One console connection and the control record of the server. Shared by the server's own files.
///
/// A connection is in exactly one list: `init_list`, the listener's alone, until its login, then
/// `auth_list`, under the server's mutex, and served by a thread of its own.
#pragma once

#include <atomic>
#include <cstdint>
#include <netinet/in.h>
#include <pthread.h>

#include "base/qvn_line_buffer.h"
#include "base/qvn_mutex.h"
#include "base/qvn_socket.h"

struct cli_connection {
  qvn_fd fd;
  sockaddr_in addr{};      ///< the peer
  int64_t expires = 0;     ///< seconds since the epoch after which it is closed
  qvn_line_buffer buffer;  ///< bytes of an unfinished line
  bool paused = false;     ///< not read to its end; to be continued
  bool logout = false;     ///< ends when all that has come has been read
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

/// Masks the control characters of what a client sent, line ends included: it may not write lines
/// of the log. Returns the line.
const char* cli_masked(char* line);

/// Hands a connection that has logged in over to a thread of its own, which frees it. Closed, freed
/// and not counted when the thread cannot be started, which is logged. Listener thread.
void cli_session_start(cli_connection* connection) QVN_EXCLUDES(g_cli_server_ctrl->mutex);

/// The command handlers: each forms its whole answer, the database list under its lock, and then
/// sends it. The arguments are not used. Connection threads.
void cmd_help_request_proc(const cli_connection& connection, std::string_view arguments);
void get_conf_request_proc(const cli_connection& connection, std::string_view arguments);
void reload_conf_request_proc(const cli_connection& connection, std::string_view arguments);
