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

constexpr int kTickMilliseconds = 5;
constexpr size_t kChunk = 16384;

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int connect_to(int port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopback(port);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
    return fd;
  close(fd);
  return -1;
}

}  // namespace

struct TcpProxy::Door {
  int listener = -1;
  std::string label;
  Direction direction{};
  long after = -1;  ///< bytes until the rule acts; -1 without a rule
  Act act{};
  bool acted = false;
  long passed[2] = {};
};

/// Index 0 is the daemon's side, 1 the server's; the index of a stream is its direction.
struct TcpProxy::Connection {
  Connection(size_t its_door, int client, int server) : door(its_door), fd{client, server} {}
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    close(fd[0]);
    if (fd[1] >= 0)
      close(fd[1]);
  }

  size_t door;
  int fd[2];
  std::string head;  ///< what came from the daemon first
  bool labelled = false;
  bool held = false;
  std::string pending[2];  ///< read and not yet passed on
  bool ended[2] = {};
  long passed[2] = {};
};

TcpProxy::TcpProxy(int server_port) : server_port_(server_port), thread_([this] { run(); }) {}

TcpProxy::~TcpProxy() {
  {
    const std::lock_guard guard(mutex_);
    ending_ = true;
  }
  thread_.join();
  for (const auto& door : doors_)
    close(door->listener);
}

int TcpProxy::open_door(const std::string& label) {
  sockaddr_in address = loopback(0);
  socklen_t length = sizeof address;
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), length), 0);
  EXPECT_EQ(listen(fd, 100), 0);
  EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
  const std::lock_guard guard(mutex_);
  doors_.push_back(std::make_unique<Door>());
  doors_.back()->listener = fd;
  doors_.back()->label = label + '\0';
  return ntohs(address.sin_port);
}

void TcpProxy::arm(size_t door, Direction direction, long after, Act act) {
  const std::lock_guard guard(mutex_);
  doors_[door]->direction = direction;
  doors_[door]->after = after;
  doors_[door]->act = act;
  doors_[door]->acted = false;
}

bool TcpProxy::has_acted(size_t door) const {
  const std::lock_guard guard(mutex_);
  return doors_[door]->acted;
}

void TcpProxy::release(size_t door) {
  const std::lock_guard guard(mutex_);
  for (const auto& connection : connections_) {
    if (connection->door == door)
      connection->held = false;
  }
}

long TcpProxy::passed(size_t door, Direction direction) const {
  const std::lock_guard guard(mutex_);
  return doors_[door]->passed[static_cast<int>(direction)];
}

void TcpProxy::run() {
  std::vector<pollfd> fds;
  for (;;) {
    fds.clear();
    {
      const std::lock_guard guard(mutex_);
      if (ending_) {
        connections_.clear();
        return;
      }
      for (const auto& door : doors_)
        fds.push_back({door->listener, POLLIN, 0});
      for (const auto& connection : connections_) {
        for (int side = 0; side < 2; side++) {
          const bool reads = !connection->ended[side] && connection->pending[side].empty();
          const int events =
              (reads ? POLLIN : 0) | (connection->pending[1 - side].empty() ? 0 : POLLOUT);
          fds.push_back({connection->held || events == 0 ? -1 : connection->fd[side],
                         static_cast<short>(events), 0});
        }
      }
    }
    poll(fds.data(), fds.size(), kTickMilliseconds);
    const std::lock_guard guard(mutex_);
    std::erase_if(connections_, [&](const auto& c) {
      return !c->held && (!forward(*c, Direction::to_server) || !forward(*c, Direction::to_client));
    });
    for (size_t door = 0; door < doors_.size(); door++)
      accept(door);
  }
}

void TcpProxy::accept(size_t door) {
  const int client = accept4(doors_[door]->listener, nullptr, nullptr, SOCK_CLOEXEC);
  if (client < 0)
    return;
  const int server = connect_to(server_port_);
  if (server < 0) {
    close(client);
    return;
  }
  connections_.push_back(std::make_unique<Connection>(door, client, server));
}

bool TcpProxy::act(Connection& connection, Door& door) {
  door.acted = true;
  door.after = -1;
  if (door.act == Act::hold) {
    connection.held = true;
    return true;
  }
  if (door.act == Act::reset) {
    const linger at_once{1, 0};
    setsockopt(connection.fd[0], SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    return false;
  }
  // What the daemon still sends is read and thrown away, as unread bytes would make it a reset.
  shutdown(connection.fd[0], SHUT_WR);
  close(connection.fd[1]);
  connection.fd[1] = -1;
  return true;
}

bool TcpProxy::forward(Connection& c, Direction direction) {
  const int from = static_cast<int>(direction), to = 1 - from;
  Door& door = *doors_[c.door];
  std::string& pending = c.pending[from];
  if (c.held || c.fd[from] < 0)
    return true;
  if (pending.empty() && !c.ended[from]) {
    char chunk[kChunk];
    const ssize_t got = recv(c.fd[from], chunk, sizeof chunk, MSG_DONTWAIT);
    if (got < 0)
      return errno == EAGAIN || errno == EINTR;
    c.ended[from] = got == 0;
    pending.assign(chunk, static_cast<size_t>(got));
    if (direction == Direction::to_server && !c.labelled && c.head.size() < 1000) {
      c.head += pending;
      c.labelled = c.head.find(door.label) != std::string::npos;
    }
  }
  if (c.fd[to] < 0) {
    pending.clear();
    return !c.ended[from];
  }
  const bool watched = c.labelled && door.after >= 0 && door.direction == direction;
  const long allowed = watched ? std::max(door.after - c.passed[from], 0L) : LONG_MAX;
  const size_t most = std::min(pending.size(), static_cast<size_t>(allowed));
  const ssize_t sent =
      most == 0 ? 0 : send(c.fd[to], pending.data(), most, MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent < 0)
    return errno == EAGAIN || errno == EINTR;
  pending.erase(0, static_cast<size_t>(sent));
  c.passed[from] += sent;
  if (c.labelled)
    door.passed[from] = c.passed[from];
  if (watched && c.passed[from] >= door.after)
    return act(c, door);
  return !(c.ended[from] && pending.empty());
}

}  // namespace support
