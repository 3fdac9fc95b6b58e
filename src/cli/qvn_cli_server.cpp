#include "cli/qvn_cli_server.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <new>
#include <span>
#include <sys/epoll.h>
#include <sys/socket.h>

#include "base/qvn_log.h"
#include "base/qvn_thread.h"
#include "cli/cli_connection.h"
#include "cli/cli_receive.h"
#include "cli/cli_session.h"
#include "core/qvn_core_ctrl.h"

namespace {

constexpr const char* kLogSource = "qvn_cli_server";

constexpr int64_t kLoginGrace = 90;     // seconds
constexpr int64_t kSweepInterval = 10;  // seconds
constexpr int kTickMilliseconds = 500;

/// How often a connection is read, and how many are accepted, before the others have their turn;
/// the rest waits for the next tick. A client that streams without end costs next to nothing.
constexpr int kReadsPerTick = 16;
constexpr int kAcceptsPerTick = 1000;

/// Waits for input on the descriptor from now on; also makes epoll report again input that has
/// come before.
bool watch(int operation, int fd) {
  epoll_event event{};
  event.events = EPOLLIN | EPOLLET;
  event.data.fd = fd;
  return epoll_ctl(g_cli_server_ctrl->epoll_fd.get(), operation, fd, &event) == 0;
}

/// The link that leads to the initial connection; a connection that is not there ends the search at
/// a null link.
cli_connection** find_initial(int fd) {
  cli_connection** link = &g_cli_server_ctrl->init_list;
  while (*link && (*link)->fd.get() != fd) {
    link = &(*link)->next;
  }
  return link;
}

cli_connection* take_initial(cli_connection** link) {
  cli_connection* const connection = *link;
  *link = connection->next;
  connection->next = nullptr;
  --g_cli_server_ctrl->init_count;
  (void)epoll_ctl(g_cli_server_ctrl->epoll_fd.get(), EPOLL_CTL_DEL, connection->fd.get(), nullptr);
  return connection;
}

/// Closes the initial connections whose time to log in is over. A clock that was stepped back
/// prolongs no wait beyond its interval.
void sweep(int64_t now) {
  if (now < g_cli_server_ctrl->next_check &&
      now + kSweepInterval >= g_cli_server_ctrl->next_check) {
    return;
  }
  g_cli_server_ctrl->next_check = now + kSweepInterval;
  g_cli_server_ctrl->accept_paused = true;  // whatever ended the last accept loop may be over
  cli_connection** link = &g_cli_server_ctrl->init_list;
  while (cli_connection* const connection = *link) {
    connection->expires = std::min(connection->expires, now + kLoginGrace);
    if (connection->expires < now) {
      delete take_initial(link);
    } else {
      link = &connection->next;
    }
  }
}

/// Goes on with what was left unread at the last tick.
void resume_paused() {
  if (g_cli_server_ctrl->accept_paused) {
    g_cli_server_ctrl->accept_paused = false;
    (void)watch(EPOLL_CTL_MOD, g_cli_server_ctrl->listen_fd.get());
  }
  for (auto* connection = g_cli_server_ctrl->init_list; connection; connection = connection->next) {
    if (connection->paused) {
      connection->paused = false;
      (void)watch(EPOLL_CTL_MOD, connection->fd.get());
    }
  }
}

// --- accepting -----------------------------------------------------------------------------------

bool limit_reached() {
  uint32_t authenticated = 0;
  {
    const qvn_lock_guard guard(g_cli_server_ctrl->mutex);
    authenticated = g_cli_server_ctrl->auth_count;
  }
  const uint32_t initial = g_cli_server_ctrl->init_count;
  if (initial + authenticated < g_core_ctrl->cli_connection_limit) {
    return false;
  }
  QVN_LOG(kLogNotice,
          "Maximum connection in progress, can't accept a new connect request, initial connection "
          "%u, auth connection %u\r\n",
          initial, authenticated);
  return true;
}

void add_initial(qvn_fd fd, const sockaddr_in& peer) {
  auto* const connection = new (std::nothrow) cli_connection;
  if (!connection) {
    QVN_LOG(kLogError, "Alloc memory for a new connection failed");
    return;
  }
  connection->fd = std::move(fd);
  connection->addr = peer;
  connection->expires = std::time(nullptr) + kLoginGrace;
  const cli_peer shown = cli_peer_of(*connection);
  if (!watch(EPOLL_CTL_ADD, connection->fd.get())) {
    QVN_LOG(kLogError, "Can't wait for input of CLI '%s:%d', %s\n", shown.address, shown.port,
            std::strerror(errno));
    delete connection;
    return;
  }
  connection->next = g_cli_server_ctrl->init_list;
  g_cli_server_ctrl->init_list = connection;
  ++g_cli_server_ctrl->init_count;
  QVN_LOG(kLogDebug, "A new client %s:%d connected, fd as %d\n", shown.address, shown.port,
          connection->fd.get());
}

void accept_connections() {
  for (int accepted = 0; accepted < kAcceptsPerTick; ++accepted) {
    sockaddr_in peer{};
    const int32_t fd = qvn_tcp_accept(g_cli_server_ctrl->listen_fd.get(), &peer, "CLI");
    if (fd < 1) {
      // No event comes when there are descriptors or memory again for who is still waiting.
      g_cli_server_ctrl->accept_paused |= fd != kAcceptWouldBlock;
      return;
    }
    qvn_fd owned(fd);
    if (!limit_reached()) {
      add_initial(std::move(owned), peer);
    }
  }
  g_cli_server_ctrl->accept_paused = true;
}

// --- before the login ----------------------------------------------------------------------------

/// A refused client that does not read loses the answer: the listener never waits for a client.
void refuse(const cli_connection& connection, cli_login why) {
  static constexpr std::string_view kRefusal = "Incorrect login ID or password\r\n";
  if (why == cli_login::wrong_password) {
    const cli_peer peer = cli_peer_of(connection);
    QVN_LOG(kLogWarning, "Incorrect user ID or password, login client is %s%d\n", peer.address,
            peer.port);
  }
  (void)send(connection.fd.get(), kRefusal.data(), kRefusal.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

/// Looks for a login in what came.
bool login_bytes(cli_connection& connection, std::string_view bytes) {
  return connection.logins.read(
      bytes, g_core_ctrl->cli_login_user, g_core_ctrl->cli_login_pwd,
      [&](cli_login why) { refuse(connection, why); },
      [](const char* shown) { QVN_LOG(kLogInfo, "Receive invalid msg from CLI [%s]\n", shown); });
}

void log_end(const cli_connection& connection, int error) {
  if (error == 0) {
    QVN_LOG(kLogInfo, "The CLI has performed an orderly shutdown, fd as %d\n", connection.fd.get());
    return;
  }
  const cli_peer peer = cli_peer_of(connection);
  QVN_LOG(kLogInfo, "The CLI %s:%d recv error %s\n", peer.address, peer.port, std::strerror(error));
}

/// Only the newest initial connection is served. Older ones are read so that their end is noticed.
void serve_initial(int fd) {
  cli_connection** const link = find_initial(fd);
  cli_connection* const connection = *link;
  if (!connection) {
    return;
  }
  const bool newest = connection == g_cli_server_ctrl->init_list;
  const cli_turn turn = cli_read_turn<kLoginReadSize>(
      fd, kReadsPerTick,
      [&](std::string_view bytes) { return !newest || !login_bytes(*connection, bytes); });
  connection->paused |= turn.state == cli_turn::unfinished;
  if (turn.state == cli_turn::stopped) {
    cli_session_start(take_initial(link));
  } else if (turn.state == cli_turn::ended) {
    if (newest) {
      log_end(*connection, turn.error);
    }
    delete take_initial(link);
  }
}

// --- listener ------------------------------------------------------------------------------------

void handle_events(std::span<const epoll_event> events) {
  for (const epoll_event& event : events) {
    if ((event.events & EPOLLIN) == 0) {
      continue;
    }
    if (event.data.fd == g_cli_server_ctrl->listen_fd.get()) {
      accept_connections();
    } else {
      serve_initial(event.data.fd);
    }
  }
}

void* cli_listen_threand_run(void* /*unused*/) noexcept {
  constexpr std::size_t kMostEvents = 100;
  qvn_thread_set_name("qvn_console");
  std::chrono::steady_clock::time_point next_tick{};
  while (g_cli_server_ctrl->exit != 1) {
    sweep(std::time(nullptr));
    if (const auto now = std::chrono::steady_clock::now(); now >= next_tick) {
      next_tick = now + std::chrono::milliseconds(kTickMilliseconds);
      resume_paused();
    }
    std::array<epoll_event, kMostEvents> events;
    const int count = epoll_wait(g_cli_server_ctrl->epoll_fd.get(), events.data(),
                                 static_cast<int>(events.size()), kTickMilliseconds);
    if (count > 0) {
      handle_events(std::span(events).first(static_cast<std::size_t>(count)));
    }
  }
  return nullptr;
}

/// Ends the connections' waits, also that for a client which does not read its answer.
void shut_sessions_down() QVN_REQUIRES(g_cli_server_ctrl->mutex) {
  for (auto* connection = g_cli_server_ctrl->auth_list; connection; connection = connection->next) {
    (void)shutdown(connection->fd.get(), SHUT_RDWR);
  }
}

}  // namespace

int32_t qvn_cli_server_init() {
  g_cli_server_ctrl = new (std::nothrow) cli_server_ctrl;
  if (!g_cli_server_ctrl) {
    QVN_LOG(kLogError, "Alloc memory for CLI connection control failed\n");
    return -1;
  }
  g_cli_server_ctrl->epoll_fd.reset(epoll_create1(EPOLL_CLOEXEC));
  if (!g_cli_server_ctrl->epoll_fd.is_open()) {
    QVN_LOG(kLogWarning, "Create epoll instance for CLI server failed\n");
    return -1;
  }
  const char* const address = g_core_ctrl->cli_listen_ip;
  const uint16_t port = g_core_ctrl->cli_listen_port;
  const uint16_t limit = g_core_ctrl->cli_connection_limit;
  g_cli_server_ctrl->listen_fd.reset(qvn_tcp_socket_and_listen(address, port, limit));
  if (!g_cli_server_ctrl->listen_fd.is_open()) {
    return -1;
  }
  if (!watch(EPOLL_CTL_ADD, g_cli_server_ctrl->listen_fd.get())) {
    QVN_LOG(kLogWarning, "CLI server can't wait for connections on %s:%d, %s\n", address, port,
            std::strerror(errno));
    return -1;
  }
  QVN_LOG(kLogNotice, "CLI server listen on %s:%d, connection limit as %d\n", address, port, limit);
  return 0;
}

int32_t qvn_cli_server_start() {
  const int result =
      pthread_create(&g_cli_server_ctrl->thread, nullptr, cli_listen_threand_run, nullptr);
  g_cli_server_ctrl->started = result == 0;
  return result;
}

int32_t qvn_cli_server_exit() {
  if (!g_cli_server_ctrl) {
    return 0;
  }
  g_cli_server_ctrl->exit = 1;
  if (g_cli_server_ctrl->started) {
    pthread_join(g_cli_server_ctrl->thread, nullptr);
    g_cli_server_ctrl->started = false;
  }
  const qvn_lock_guard guard(g_cli_server_ctrl->mutex);
  shut_sessions_down();
  while (g_cli_server_ctrl->live_threads > 0) {
    g_cli_server_ctrl->session_ended.wait(g_cli_server_ctrl->mutex);
  }
  return 0;
}

int32_t qvn_cli_server_uninit() {
  if (!g_cli_server_ctrl) {
    return 0;
  }
  while (g_cli_server_ctrl->init_list) {
    delete take_initial(&g_cli_server_ctrl->init_list);
  }
  delete g_cli_server_ctrl;
  g_cli_server_ctrl = nullptr;
  return 0;
}
