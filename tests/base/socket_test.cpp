#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "base/qvn_socket.h"
#include "support/log_fixture.h"

namespace {

using testing::ElementsAre;

constexpr const char* kLoopback = "127.0.0.1";

sockaddr_in local_address(int fd) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
  return address;
}

uint16_t local_port(int fd) {
  return ntohs(local_address(fd).sin_port);
}

void expect_session_options(int fd) {
  int no_delay = 0;
  socklen_t length = sizeof no_delay;
  EXPECT_EQ(getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &no_delay, &length), 0);
  EXPECT_NE(no_delay, 0);
  EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
}

class socket_test : public support::log_fixture {};

TEST_F(socket_test, a_connection_is_ready_at_both_ends_and_stores_its_peer) {
  const qvn_fd listener(qvn_tcp_socket_and_listen(kLoopback, 0, 2));
  sockaddr_in peer{};
  EXPECT_EQ(qvn_tcp_accept(listener.get(), &peer, "CLI"), -100) << "no connection waits";
  const qvn_fd client(qvn_tcp_secket("test"));
  ASSERT_EQ(qvn_tcp_secket_connect(client.get(), kLoopback, local_port(listener.get())), 0);
  expect_session_options(client.get());
  ASSERT_EQ(qvn_wait_for_input(listener.get(), 60'000), qvn_input::ready);
  const qvn_fd accepted(qvn_tcp_accept(listener.get(), &peer, "CLI"));
  ASSERT_TRUE(accepted.is_open());
  expect_session_options(accepted.get());
  EXPECT_EQ(ntohs(peer.sin_port), local_port(client.get()));
  EXPECT_THAT(lines(), ElementsAre("[DEBUG] qvn_socket The CLI get a new client request "
                                   "connecded, fd as " +
                                   std::to_string(accepted.get())));
}

TEST_F(socket_test, failures_are_reported_with_their_reason) {
  const qvn_fd first(qvn_tcp_socket_and_listen(kLoopback, 0, 2));
  const qvn_fd client(qvn_tcp_secket("test"));
  const std::string taken = std::to_string(local_port(first.get()));
  sockaddr_in peer{};
  EXPECT_EQ(qvn_tcp_accept(client.get(), &peer, "CLI"), -1);
  EXPECT_EQ(qvn_tcp_accept(client.get(), &peer, nullptr), -1);
  EXPECT_EQ(qvn_tcp_socket_and_listen(kLoopback, local_port(first.get()), 2), -1);
  EXPECT_EQ(qvn_tcp_secket_connect(client.get(), kLoopback, 1), -1);
  EXPECT_THAT(lines(), ElementsAre("[WARNING] qvn_socket The  CLI socket accept error",
                                   "[WARNING] qvn_socket The   socket accept error",
                                   "[WARNING] qvn_socket Can't bind socket as [127.0.0.1:" + taken +
                                       "], error: Address already in use",
                                   "[WARNING] qvn_socket Connect 127.0.0.1:1 error, Connection "
                                   "refused"));
}

TEST_F(socket_test, what_cannot_be_sent_is_logged) {
  std::array<int, 2> ends{-1, -1};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  const qvn_fd sender(ends[0]);
  (void)close(ends[1]);
  const std::string prefix = "[NOTICE] qvn_socket The socket ";
  const std::string shown = prefix + std::to_string(sender.get()) + " may be shutdown";
  EXPECT_EQ(qvn_tcp_reliable_send(sender.get(), "hello", 5), -1);
  EXPECT_EQ(qvn_cli_reliable_send(sender.get(), "hello", 5), -1);
  EXPECT_EQ(qvn_cli_reliable_send(0, "said to nobody\n", 15), 0) << "without a connection";
  const qvn_fd datagrams(qvn_nonblock_udp_socket(kLoopback, 0));
  const std::string too_long(70'000, 'x');
  EXPECT_EQ(qvn_udp_reliable_send(datagrams.get(), too_long.data(), too_long.size(),
                                  local_address(datagrams.get())),
            0);
  EXPECT_THAT(lines(), ElementsAre(shown + ", data size 5, send size 0",
                                   shown + ", data size 5, send size 0", "said to nobody",
                                   prefix + std::to_string(datagrams.get()) + " may be shutdown"));
}

TEST_F(socket_test, a_datagram_socket_takes_the_first_free_port_up_to_the_last_one) {
  const qvn_fd taken(qvn_nonblock_udp_socket(kLoopback, 0));
  const uint16_t first = local_port(taken.get());
  uint16_t port = 0;
  EXPECT_EQ(qvn_nonblock_udp_socket_multi_trybind(kLoopback, first, 1, &port), -1);
  EXPECT_THAT(lines(), ElementsAre("[DEBUG] qvn_socket Can't bind socket as [127.0.0.1:" +
                                   std::to_string(first) + "]"));
  EXPECT_EQ(qvn_nonblock_udp_socket(kLoopback, first), -1);
  const qvn_fd next(qvn_nonblock_udp_socket_multi_trybind(kLoopback, first, 100, &port));
  EXPECT_TRUE(next.is_open() && port > first);
  EXPECT_EQ(local_port(next.get()), port);
  EXPECT_NE(fcntl(next.get(), F_GETFL) & O_NONBLOCK, 0);
  // After the last port would come port 0, which binds to any.
  constexpr uint16_t kLast = 65535;
  const qvn_fd last(qvn_nonblock_udp_socket(kLoopback, kLast));  // by us or by another process
  EXPECT_EQ(qvn_nonblock_udp_socket_multi_trybind(kLoopback, kLast, 3, &port), -1);
}

TEST(socket_address, private_networks_are_known_by_the_beginning_of_the_text) {
  for (const char* address :
       {"192.168", "192.1680.1.1", "10.0.0.1", "169.254.7.7", "172.16.0.1", "172.31.5.1"}) {
    EXPECT_EQ(qvn_is_public_address(address), 0) << address;
  }
  for (const char* address : {"192.167.1.1", "100.1.1.1", "10", "169.253.1.1", "172.32.0.1",
                              "172.15.0.1", "172.2.0.1", "127.0.0.1", ""}) {
    EXPECT_EQ(qvn_is_public_address(address), 1) << address;
  }
}

TEST(socket_address, port_and_host_are_read_for_both_families) {
  sockaddr_in v4{.sin_family = AF_INET, .sin_port = htons(4410), .sin_addr = {}, .sin_zero = {}};
  inet_pton(AF_INET, "192.0.2.7", &v4.sin_addr);
  sockaddr_in6 v6{};
  v6.sin6_family = AF_INET6;
  v6.sin6_port = htons(65534);
  inet_pton(AF_INET6, "2001:db8::7", &v6.sin6_addr);
  const auto shown = [](const auto& address) {
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    char text[64] = "";
    return std::string(qvn_get_addr(text, sizeof text, generic, sizeof address)) + " " +
           std::to_string(qvn_get_port(generic));
  };
  EXPECT_EQ(shown(v4), "192.0.2.7 4410");
  EXPECT_EQ(shown(v6), "2001:db8::7 65534");
  const sockaddr other{.sa_family = AF_UNIX, .sa_data = {}};
  EXPECT_EQ(qvn_get_port(&other) + qvn_get_port(nullptr), 0);
}

TEST(socket_address, a_name_becomes_an_address_cut_to_the_buffer) {
  char text[] = "unchanged,yy";
  qvn_domain2ip("", text, sizeof text);
  EXPECT_STREQ(text, "unchanged,yy");
  qvn_domain2ip("127.0.0.1", text, sizeof text);
  EXPECT_STREQ(text, "127.0.0.1");
  std::ranges::fill(text, 'y');
  qvn_domain2ip("127.0.0.1", text, 6);
  EXPECT_STREQ(text, "127.0");
  EXPECT_EQ(text[6], 'y');
}

}  // namespace
