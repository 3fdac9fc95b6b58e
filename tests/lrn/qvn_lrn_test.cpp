#include "lrn/qvn_lrn.h"

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include "core/qvn_core_ctrl.h"

namespace {

using replies = std::vector<std::string>;

/// A server on loopback that answers the n-th request with what the test says.
class lrn_peer {
 public:
  using answer_fn = std::function<replies(int attempt, const std::string& request)>;

  explicit lrn_peer(answer_fn answer) : answer_(std::move(answer)) {
    fd_.reset(qvn_nonblock_udp_socket("127.0.0.1", 0));
    socklen_t length = sizeof address_;
    EXPECT_EQ(getsockname(fd_.get(), reinterpret_cast<sockaddr*>(&address_), &length), 0);
    thread_ = std::thread([this] { serve(); });
  }
  ~lrn_peer() {
    done_ = true;
    thread_.join();
  }

  [[nodiscard]] const sockaddr_in& address() const { return address_; }
  /// Whether that many requests have come, or do so before long, and no more.
  [[nodiscard]] bool gets(int requests) const {
    for (int i = 0; i < 1000 && requests_ < requests; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return requests_ == requests;
  }

 private:
  void serve() {
    while (!done_) {
      pollfd entry{.fd = fd_.get(), .events = POLLIN, .revents = 0};
      if (poll(&entry, 1, 20) <= 0) {
        continue;
      }
      char bytes[2048];
      sockaddr_in client{};
      socklen_t size = sizeof client;
      const ssize_t length =
          recvfrom(fd_.get(), bytes, sizeof bytes, 0, reinterpret_cast<sockaddr*>(&client), &size);
      if (length <= 0) {
        continue;
      }
      const int attempt = ++requests_;
      for (const std::string& reply :
           answer_(attempt, std::string(bytes, static_cast<std::size_t>(length)))) {
        (void)qvn_udp_reliable_send(fd_.get(), reply.data(), reply.size(), client);
      }
    }
  }

  answer_fn answer_;
  qvn_fd fd_;
  sockaddr_in address_{};
  std::atomic<int> requests_ = 0;
  std::atomic<bool> done_ = false;
  std::thread thread_;
};

std::string call_id_of(const std::string& request) {
  const std::size_t begin = request.find("Call-ID: ") + 9;
  return request.substr(begin, request.find('\r', begin) - begin);
}

std::string redirect(const std::string& call_id, const std::string& contact) {
  return "SIP/2.0 302 Moved Temporarily\r\nFrom: a\r\nTo: b\r\nCall-ID: " + call_id +
         "\r\nCSeq: 1 INVITE\r\nContact: " + contact + "\r\nLocation-Info: N\r\n\r\n";
}

class lrn_lookup : public testing::Test {
 protected:
  lrn_lookup() {
    g_core_ctrl = &core_;
    std::strcpy(core_.lrn_local_ip, "127.0.0.1");
    core_.lrn_local_port = 21000;
    query_.from_user = "web";
    query_.number = "12125550100";
    EXPECT_GE(qvn_lrn_socket_create(query_), 0);
  }
  ~lrn_lookup() override { g_core_ctrl = nullptr; }

  int32_t look_up(const lrn_peer& peer) {
    std::strcpy(query_.server_host, "127.0.0.1");
    query_.server_addr = peer.address();
    query_.server_port = ntohs(peer.address().sin_port);
    return qvn_get_lrn_number(query_);
  }

  qvn_core_ctrl core_;
  lrn_query query_;
};

TEST_F(lrn_lookup, stores_what_the_first_good_response_says) {
  const lrn_peer peer([](int, const std::string& request) {
    EXPECT_TRUE(request.starts_with("INVITE sip:+12125550100@127.0.0.1:")) << request;
    return replies{redirect(call_id_of(request), "<sip:1;rn=+2125550199;npdi>"),
                   redirect(call_id_of(request), "<sip:1;rn=another;npdi>")};
  });
  EXPECT_EQ(look_up(peer), 0);
  EXPECT_EQ(query_.result, kLrnRedirected);
  EXPECT_STREQ(query_.lrn, "2125550199");
  EXPECT_EQ(query_.location_info, 'N');
  EXPECT_EQ(query_.cseq, 1U);
  EXPECT_EQ(query_.branch, 1U);
  EXPECT_EQ(query_.tag, 1U);
  EXPECT_EQ(query_.call_seq, 1);
  // The second response of the first query costs the second query an attempt.
  EXPECT_EQ(look_up(peer), 0);
  EXPECT_TRUE(peer.gets(3));
}

TEST_F(lrn_lookup, asks_again_after_provisional_stray_and_broken_responses) {
  const lrn_peer peer([](int attempt, const std::string& request) {
    switch (attempt) {
      case 1:
        return replies{"SIP/2.0 100 Trying\r\n\r\n"};
      case 2:
        return replies{redirect("999-1", "rn=5;")};
      default:
        return replies{redirect(call_id_of(request), "<sip:1@h>")};
    }
  });
  std::strcpy(query_.lrn, "before");
  EXPECT_EQ(look_up(peer), 0);
  EXPECT_TRUE(peer.gets(3));
  EXPECT_STREQ(query_.lrn, "before");  // the response names none
}

TEST_F(lrn_lookup, gives_up_after_three_attempts_and_leaves_what_it_held) {
  const std::string missing = "SIP/2.0 302 Moved\r\nFrom: a\r\n\r\n";
  const lrn_peer bad([&](int attempt, const std::string&) {
    return attempt == 2 ? replies{""} : replies{missing};
  });
  query_.result = kLrnOther;
  query_.location_info = 'Q';
  EXPECT_EQ(look_up(bad), -1);
  EXPECT_TRUE(bad.gets(3));
  const lrn_peer silent([](int, const std::string&) { return replies{}; });
  EXPECT_EQ(look_up(silent), -1);
  EXPECT_TRUE(silent.gets(3));
  EXPECT_EQ(query_.result, kLrnOther);
  EXPECT_EQ(query_.location_info, 'Q');
  EXPECT_STREQ(query_.lrn, "");
  EXPECT_EQ(query_.call_seq, 2);
}

TEST_F(lrn_lookup, keeps_99_characters_of_a_routing_number) {
  // And without a local address and port the request names those by which the server is reached.
  core_.lrn_local_ip[0] = '\0';
  core_.lrn_local_port = 0;
  EXPECT_GE(qvn_lrn_socket_create(query_), 0);
  const lrn_peer peer([&](int, const std::string& request) {
    const std::string place = "127.0.0.1:" + std::to_string(query_.local_port);
    EXPECT_NE(request.find("\r\nVia: SIP/2.0/UDP " + place + ";"), std::string::npos) << request;
    EXPECT_NE(request.find("\r\nContact: <sip:web@" + place + ";"), std::string::npos) << request;
    EXPECT_NE(query_.local_port, 0);
    return replies{redirect(call_id_of(request), "rn=" + std::string(400, '7') + ";")};
  });
  EXPECT_EQ(look_up(peer), 0);
  EXPECT_EQ(std::string(query_.lrn), std::string(99, '7'));
}

}  // namespace
