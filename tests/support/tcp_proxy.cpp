#include "support/tcp_proxy.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace support {
namespace {

constexpr int kTick = 5;  // milliseconds

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

/// Index 0 is the daemon's side, 1 the server's; the index of a stream is its direction.
struct TcpProxy::Connection {
  Connection(Door& its_door, qvn_fd client, qvn_fd server)
      : door(its_door), fd{std::move(client), std::move(server)} {}

  Door& door;
  qvn_fd fd[2];
  std::string head;  ///< what came from the daemon first
  bool labelled = false;
  bool cut = false;  ///< what the daemon still sends is thrown away
  long passed[2] = {};
  std::atomic<bool> over = false;
  std::thread thread;
};

TcpProxy::TcpProxy(int server_port) : server_port_(server_port), thread_([this] { run(); }) {}

TcpProxy::~TcpProxy() {
  ending_ = true;
  thread_.join();
  for (Connection& connection : connections_)
    connection.thread.join();
}

int TcpProxy::open_door(const std::string& label) {
  sockaddr_in address = loopback(0);
  socklen_t length = sizeof address;
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), length) | listen(fd, 100) |
                getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length),
            0);
  const std::lock_guard guard(mutex_);
  doors_.emplace_back();
  doors_.back().listener.reset(fd);
  doors_.back().label = label + '\0';
  return ntohs(address.sin_port);
}

void TcpProxy::arm(size_t door, Direction direction, long after, Act act) {
  const std::lock_guard guard(mutex_);
  doors_[door].direction = direction;
  doors_[door].after = after;
  doors_[door].act = act;
  doors_[door].acted = false;
}

bool TcpProxy::has_acted(size_t door) const {
  const std::lock_guard guard(mutex_);
  return doors_[door].acted;
}

void TcpProxy::release(size_t door) {
  const std::lock_guard guard(mutex_);
  doors_[door].holds = false;
}

long TcpProxy::passed(size_t door, Direction direction) const {
  const std::lock_guard guard(mutex_);
  return doors_[door].passed[static_cast<int>(direction)];
}

void TcpProxy::run() {
  while (!ending_) {
    poll(nullptr, 0, kTick);
    connections_.remove_if([](Connection& connection) {
      if (connection.over)
        connection.thread.join();
      return connection.over.load();
    });
    const std::lock_guard guard(mutex_);
    for (Door& door : doors_)
      accept(door);
  }
}

void TcpProxy::accept(Door& door) {
  qvn_fd client(accept4(door.listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
  qvn_fd server(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = loopback(server_port_);
  if (!client.is_open() ||
      connect(server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return;
  Connection& connection = connections_.emplace_back(door, std::move(client), std::move(server));
  connection.thread = std::thread([this, &connection] { serve(connection); });
}

void TcpProxy::serve(Connection& c) const {
  bool open = true;
  while (open && !ending_) {
    pollfd ready[2] = {{c.fd[0].get(), POLLIN, 0}, {c.fd[1].get(), POLLIN, 0}};
    poll(ready, 2, kTick);
    for (const int from : {0, 1})
      open = open && (ready[from].revents == 0 || forward(c, from));
  }
  for (qvn_fd& fd : c.fd)
    fd.reset();
  c.over = true;
}

bool TcpProxy::forward(Connection& c, int from) const {
  char chunk[16384];
  const ssize_t got = recv(c.fd[from].get(), chunk, sizeof chunk, MSG_DONTWAIT);
  if (got <= 0 || c.cut)
    return got > 0;
  std::string_view bytes(chunk, static_cast<size_t>(got));
  if (from == 0 && c.head.size() < 1000) {
    c.head += bytes;
    c.labelled = c.head.find(c.door.label) != std::string::npos;
  }
  long before = LONG_MAX;  // bytes until the rule acts
  if (const std::lock_guard guard(mutex_);
      c.labelled && c.door.after >= 0 && static_cast<int>(c.door.direction) == from)
    before = std::max(c.door.after - c.passed[from], 0L);
  if (before > got)
    return pass_on(c, from, bytes);
  const auto first = static_cast<size_t>(before);
  return pass_on(c, from, bytes.substr(0, first)) && act(c) &&
         (c.cut || pass_on(c, from, bytes.substr(first)));
}

bool TcpProxy::pass_on(Connection& c, int from, std::string_view bytes) const {
  while (!bytes.empty() && !ending_) {
    pollfd ready{c.fd[1 - from].get(), POLLOUT, 0};
    poll(&ready, 1, kTick);
    const ssize_t sent = send(ready.fd, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && errno != EAGAIN && errno != EINTR)
      return false;
    bytes.remove_prefix(static_cast<size_t>(std::max<ssize_t>(sent, 0)));
    c.passed[from] += std::max<ssize_t>(sent, 0);
  }
  const std::lock_guard guard(mutex_);
  if (c.labelled)
    c.door.passed[from] = c.passed[from];
  return true;
}

bool TcpProxy::act(Connection& c) const {
  std::unique_lock guard(mutex_);
  c.door.acted = true;
  c.door.after = -1;
  c.door.holds = c.door.act == Act::hold;
  if (c.door.act == Act::reset) {
    const linger at_once{1, 0};
    setsockopt(c.fd[0].get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    return false;
  }
  if (c.door.act == Act::close) {
    // What the daemon still sends is read, as unread bytes would make it a reset.
    shutdown(c.fd[0].get(), SHUT_WR);
    c.fd[1].reset();
    c.cut = true;
  }
  while (c.door.holds && !ending_) {
    guard.unlock();
    poll(nullptr, 0, kTick);
    guard.lock();
  }
  return true;
}

}  // namespace support
