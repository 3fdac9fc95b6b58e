/// Thin wrappers over IPv4 sockets: the daemon's socket options, its rules for sending, and every
/// failure logged in fixed words. Stateless; any thread.
///
/// Addresses are dotted texts, ports are in host order. Sockets are close-on-exec. A socket made in
/// a call that fails is closed again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <netinet/in.h>

#include "base/qvn_fd.h"

/// Whether a call on a socket that failed with this error number may succeed later.
[[nodiscard]] bool qvn_try_later(int error);

/// What a wait for input ended with. The end of a connection counts as input.
enum class qvn_input { none, ready, broken };

/// Waits for input on the socket for that long; a signal ends the wait with none.
[[nodiscard]] qvn_input qvn_wait_for_input(int fd, int milliseconds);

/// Waits for that long, -1: without end, until the socket takes more or has broken: the next send
/// shows which.
void qvn_wait_until_writable(int fd, int milliseconds);

/// What qvn_tcp_accept returns when no connection waits to be accepted.
inline constexpr int32_t kAcceptWouldBlock = -100;

/// A listening stream socket, non-blocking and without delay. -1, with a WARNING, when any step
/// fails.
[[nodiscard]] int32_t qvn_tcp_socket_and_listen(const char* address, uint16_t port, int backlog);

/// Accepts one connection, non-blocking and without delay, and stores its peer. kAcceptWouldBlock
/// when none waits; -1, with a WARNING, for anything else. `owner` names the caller in messages and
/// may be absent.
[[nodiscard]] int32_t qvn_tcp_accept(int32_t listener, sockaddr_in* peer, const char* owner);

/// Sends all of the data, waiting as long as it takes for a peer that does not read. The length, or
/// -1, with a NOTICE, when the connection broke.
[[nodiscard]] int64_t qvn_tcp_reliable_send(int32_t socket, const void* data, std::size_t length);

/// As qvn_tcp_reliable_send; without a connection (a socket below 1) the data, a text of less than
/// 2,048 bytes, goes to the log, and 0 is returned.
[[nodiscard]] int64_t qvn_cli_reliable_send(int32_t socket, const char* data, std::size_t length);

/// A stream socket; -1, with a WARNING.
[[nodiscard]] int32_t qvn_tcp_secket(const char* owner);

/// How far connecting came. A socket that refused its two options works all the same.
struct qvn_connected {
  int error;         ///< 0, or the error number: no connection
  bool nonblocking;  ///< the socket is
  bool no_delay;     ///< the socket is without delay
};

/// Connects, then makes the socket non-blocking and without delay. Logs nothing.
[[nodiscard]] qvn_connected qvn_tcp_connect(int socket, const char* address, uint16_t port);

/// As qvn_tcp_connect. A refused option is a NOTICE. 0, or -1, with a WARNING, without a
/// connection.
[[nodiscard]] int32_t qvn_tcp_secket_connect(int32_t socket, const char* address, uint16_t port);

/// A non-blocking datagram socket bound to that address; -1, with an ERROR.
[[nodiscard]] int32_t qvn_nonblock_udp_socket(const char* address, uint16_t port);

/// A non-blocking datagram socket bound to the first free one of `tries` ports, which it stores; a
/// first port of 0 is any that is free. -1 when none is free or a socket cannot be made.
[[nodiscard]] int32_t qvn_nonblock_udp_socket_multi_trybind(const char* address,
                                                            uint16_t first_port, int tries,
                                                            uint16_t* port);

/// Sends one datagram, waiting while the socket cannot take it. The bytes counted as sent: less
/// than the length, with a NOTICE, when it failed.
[[nodiscard]] int64_t qvn_udp_reliable_send(int32_t socket, const void* data, std::size_t length,
                                            const sockaddr_in& destination);

/// 0 when the text begins like an address of a private network (RFC 1918, RFC 3927), else 1; texts
/// are compared, so "192.168" alone is private and loopback is public.
[[nodiscard]] int32_t qvn_is_public_address(const char* address);

/// The first IPv4 address of a host name as a text, cut to `size`; the buffer stays as it is when
/// the name is unknown. One thread at a time (gethostbyname).
void qvn_domain2ip(const char* name, char* out, std::size_t size);

/// The port of an IPv4 or IPv6 address in host order; 0 for any other and for none.
[[nodiscard]] uint16_t qvn_get_port(const sockaddr* address);

/// Writes the numeric host of an address into `out` and returns it.
char* qvn_get_addr(char* out, std::size_t size, const sockaddr* address, socklen_t length);
