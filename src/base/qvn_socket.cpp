#include "base/qvn_socket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>

#include "base/qvn_log.h"
#include "base/qvn_text.h"

namespace {

constexpr const char* kLogSource = "qvn_socket";

sockaddr_in make_address(const char* address, uint16_t port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(port);
  result.sin_addr.s_addr = inet_addr(qvn_or_empty(address));
  return result;
}

const sockaddr* generic(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

bool set_nonblocking(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  return flags != -1 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) != -1;
}

bool set_option(int fd, int level, int option) {
  constexpr int kOn = 1;
  return setsockopt(fd, level, option, &kOn, sizeof kOn) == 0;
}

bool set_no_delay(int fd) {
  return set_option(fd, IPPROTO_TCP, TCP_NODELAY);
}

bool bind_to(int fd, const char* address, uint16_t port) {
  const sockaddr_in place = make_address(address, port);
  return bind(fd, generic(place), sizeof place) == 0;
}

uint16_t bound_port(int fd) {
  sockaddr_in place{};
  socklen_t length = sizeof place;
  (void)getsockname(fd, reinterpret_cast<sockaddr*>(&place), &length);
  return ntohs(place.sin_port);
}

constexpr int kWithoutEnd = -1;

/// A non-blocking datagram socket, not bound; none, with an ERROR, on failure.
qvn_fd make_udp_socket(const char* address, uint16_t port) {
  qvn_fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!fd.is_open()) {
    QVN_LOG(kLogError, "Can't create socket for %s:%d\n", address, port);
  } else if (!set_nonblocking(fd.get())) {
    QVN_LOG(kLogError, "Can't set socket[%s:%d] for nonblock\n", address, port);
    fd.reset();
  }
  return fd;
}

/// The steps of a listening socket; each failing one logs and ends them.
bool prepare_listener(int fd, const char* address, uint16_t port, int backlog) {
  if (!set_option(fd, SOL_SOCKET, SO_REUSEADDR)) {
    QVN_LOG(kLogWarning, "Can't set socket[%s:%d] for reuseaddr, error: %s\n", address, port,
            std::strerror(errno));
    return false;
  }
  if (!bind_to(fd, address, port)) {
    QVN_LOG(kLogWarning, "Can't bind socket as [%s:%d], error: %s\n", address, port,
            std::strerror(errno));
    return false;
  }
  if (!set_nonblocking(fd)) {
    QVN_LOG(kLogWarning, "Can't set socket %s:%d for nonblock\n", address, port);
    return false;
  }
  if (!set_no_delay(fd)) {
    QVN_LOG(kLogWarning, "Can't set socket %s:%d for no delay\n", address, port);
    return false;
  }
  if (listen(fd, backlog) != 0) {
    QVN_LOG(kLogWarning, "The socket[%s:%d] start listen failed\n", address, port);
    return false;
  }
  return true;
}

}  // namespace

bool qvn_try_later(int error) {
  return error == EINTR || error == EAGAIN || error == EWOULDBLOCK;
}

qvn_input qvn_wait_for_input(int fd, int milliseconds) {
  pollfd entry{.fd = fd, .events = POLLIN, .revents = 0};
  const int count = poll(&entry, 1, milliseconds);
  if (count == 0 || (count < 0 && errno == EINTR)) {
    return qvn_input::none;
  }
  // The end of a connection is read like input.
  return (entry.revents & (POLLIN | POLLHUP | POLLERR)) != 0 ? qvn_input::ready : qvn_input::broken;
}

void qvn_wait_until_writable(int fd, int milliseconds) {
  pollfd entry{.fd = fd, .events = POLLOUT, .revents = 0};
  (void)poll(&entry, 1, milliseconds);
}

int32_t qvn_tcp_socket_and_listen(const char* address, uint16_t port, int backlog) {
  const char* const shown = qvn_or_empty(address);
  qvn_fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.is_open()) {
    QVN_LOG(kLogWarning, "Can't create TCP socket for %s:%d, error: %s\n", shown, port,
            std::strerror(errno));
    return -1;
  }
  return prepare_listener(fd.get(), shown, port, backlog) ? fd.release() : -1;
}

int32_t qvn_tcp_accept(int32_t listener, sockaddr_in* peer, const char* owner) {
  const char* const shown = qvn_or_empty(owner);
  *peer = {};
  socklen_t length = sizeof *peer;
  qvn_fd fd(accept4(listener, reinterpret_cast<sockaddr*>(peer), &length, SOCK_CLOEXEC));
  if (!fd.is_open()) {
    if (qvn_try_later(errno)) {
      return kAcceptWouldBlock;
    }
    QVN_LOG(kLogWarning, "The  %s socket accept error\n", shown);
    return -1;
  }
  QVN_LOG(kLogDebug, "The %s get a new client request connecded, fd as %d\n", shown, fd.get());
  if (!set_nonblocking(fd.get())) {
    QVN_LOG(kLogWarning, "Can't set client socket for nonblock, owner is %s\n", shown);
    return -1;
  }
  if (!set_no_delay(fd.get())) {
    QVN_LOG(kLogWarning, "Can't set client socket for no delay, owner is %s\n", shown);
    return -1;
  }
  return fd.release();
}

int64_t qvn_tcp_reliable_send(int32_t socket, const void* data, std::size_t length) {
  std::size_t sent = 0;
  while (sent < length) {
    const ssize_t result =
        send(socket, static_cast<const char*>(data) + sent, length - sent, MSG_NOSIGNAL);
    if (result >= 0) {
      sent += static_cast<std::size_t>(result);
    } else if (qvn_try_later(errno)) {
      qvn_wait_until_writable(socket, kWithoutEnd);
    } else {
      QVN_LOG(kLogNotice, "The socket %d may be shutdown, data size %d, send size %d\n", socket,
              static_cast<int>(length), static_cast<int>(sent));
      return -1;
    }
  }
  return static_cast<int64_t>(sent);
}

int64_t qvn_cli_reliable_send(int32_t socket, const char* data, std::size_t length) {
  if (socket < 1) {
    (void)qvn_log_print_content(data);
    return 0;
  }
  return qvn_tcp_reliable_send(socket, data, length);
}

int32_t qvn_tcp_secket(const char* owner) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    QVN_LOG(kLogWarning, "Create TCP socket for %s failed\n", qvn_or_empty(owner));
  }
  return fd;
}

qvn_connected qvn_tcp_connect(int socket, const char* address, uint16_t port) {
  const sockaddr_in place = make_address(address, port);
  if (connect(socket, generic(place), sizeof place) != 0) {
    return {.error = errno, .nonblocking = false, .no_delay = false};
  }
  return {.error = 0, .nonblocking = set_nonblocking(socket), .no_delay = set_no_delay(socket)};
}

int32_t qvn_tcp_secket_connect(int32_t socket, const char* address, uint16_t port) {
  const char* const shown = qvn_or_empty(address);
  const qvn_connected made = qvn_tcp_connect(socket, address, port);
  if (made.error != 0) {
    QVN_LOG(kLogWarning, "Connect %s:%d error, %s\n", shown, port, std::strerror(made.error));
    return -1;
  }
  if (!made.nonblocking) {
    QVN_LOG(kLogNotice, "Can't set tcp socket[%s:%d] to nonblock\n", shown, port);
  }
  if (!made.no_delay) {
    QVN_LOG(kLogNotice, "Can't set tcp socket to no delay\n");
  }
  return 0;
}

int32_t qvn_nonblock_udp_socket(const char* address, uint16_t port) {
  const char* const shown = qvn_or_empty(address);
  qvn_fd fd = make_udp_socket(shown, port);
  if (fd.is_open() && !bind_to(fd.get(), shown, port)) {
    QVN_LOG(kLogError, "Can't bind socket as [%s:%d]\n", shown, port);
    fd.reset();
  }
  return fd.release();
}

int32_t qvn_nonblock_udp_socket_multi_trybind(const char* address, uint16_t first_port, int tries,
                                              uint16_t* port) {
  constexpr int kHighestPort = 65535;
  const char* const shown = qvn_or_empty(address);
  for (int number = first_port; number - first_port < tries && number <= kHighestPort; ++number) {
    const auto candidate = static_cast<uint16_t>(number);
    qvn_fd fd = make_udp_socket(shown, candidate);
    if (!fd.is_open()) {
      return -1;
    }
    if (bind_to(fd.get(), shown, candidate)) {
      *port = bound_port(fd.get());
      return fd.release();
    }
    QVN_LOG(kLogDebug, "Can't bind socket as [%s:%d]\n", shown, number);
  }
  return -1;
}

int64_t qvn_udp_reliable_send(int32_t socket, const void* data, std::size_t length,
                              const sockaddr_in& destination) {
  std::size_t sent = 0;
  for (;;) {
    const ssize_t result =
        sendto(socket, data, length, MSG_NOSIGNAL, generic(destination), sizeof destination);
    if (result >= 0) {
      sent += static_cast<std::size_t>(result);
      if (sent >= length) {
        return static_cast<int64_t>(sent);
      }
    } else if (qvn_try_later(errno)) {
      qvn_wait_until_writable(socket, kWithoutEnd);
    } else {
      QVN_LOG(kLogNotice, "The socket %d may be shutdown\n", socket);
      return static_cast<int64_t>(sent);
    }
  }
}

int32_t qvn_is_public_address(const char* address) {
  static constexpr std::string_view kPrivate[] = {
      "10.",     "169.254", "172.16.", "172.17.", "172.18.", "172.19.", "172.20.",
      "172.21.", "172.22.", "172.23.", "172.24.", "172.25.", "172.26.", "172.27.",
      "172.28.", "172.29.", "172.30.", "172.31.", "192.168"};
  const std::string_view text = qvn_or_empty(address);
  const auto begins_text = [text](std::string_view prefix) { return text.starts_with(prefix); };
  return std::ranges::any_of(kPrivate, begins_text) ? 0 : 1;
}

void qvn_domain2ip(const char* name, char* out, std::size_t size) {
  const hostent* const host = gethostbyname(qvn_or_empty(name));  // NOLINT(concurrency-mt-unsafe)
  if (!host || host->h_addrtype != AF_INET || !host->h_addr_list[0] || size == 0) {
    return;
  }
  char text[INET_ADDRSTRLEN] = {};
  if (inet_ntop(AF_INET, host->h_addr_list[0], text, sizeof text)) {
    std::memset(out, 0, size);
    (void)std::string_view(text).copy(out, size - 1);
  }
}

uint16_t qvn_get_port(const sockaddr* address) {
  static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
  if (!address || (address->sa_family != AF_INET && address->sa_family != AF_INET6)) {
    return 0;
  }
  return ntohs(reinterpret_cast<const sockaddr_in*>(address)->sin_port);
}

char* qvn_get_addr(char* out, std::size_t size, const sockaddr* address, socklen_t length) {
  if (size > 0) {
    *out = '\0';
    (void)getnameinfo(address, length, out, static_cast<socklen_t>(size), nullptr, 0,
                      NI_NUMERICHOST);
  }
  return out;
}
