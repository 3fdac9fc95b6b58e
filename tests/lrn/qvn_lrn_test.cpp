#include "lrn/qvn_lrn.h"

#include <array>
#include <cstring>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <vector>

#include "core/qvn_core_ctrl.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

/// A query and its server on loopback, whose responses lie in the query's socket before it asks.
class lrn_lookup : public testing::Test {
 protected:
  lrn_lookup() {
    g_core_ctrl = &core_;
    std::strcpy(core_.lrn_local_ip, "127.0.0.1");
    core_.lrn_local_port = 21000;
    query_.from_user = "web";
    query_.number = "12125550100";
    std::strcpy(query_.server_host, "127.0.0.1");
    socklen_t length = sizeof query_.server_addr;
    EXPECT_EQ(getsockname(server_.get(), reinterpret_cast<sockaddr*>(&query_.server_addr), &length),
              0);
    query_.server_port = ntohs(query_.server_addr.sin_port);
    EXPECT_GE(qvn_lrn_socket_create(query_), 0);
  }
  ~lrn_lookup() override { g_core_ctrl = nullptr; }

  int32_t look_up(const std::vector<std::string>& responses) {
    sockaddr_in address = query_.server_addr;
    address.sin_port = htons(query_.local_port);
    for (const std::string& each : responses) {
      (void)qvn_udp_reliable_send(server_.get(), each.data(), each.size(), address);
    }
    return qvn_get_lrn_number(query_);
  }

  /// The requests that have come since the last call.
  [[nodiscard]] std::vector<std::string> requests() const {
    std::vector<std::string> texts;
    std::array<char, 2048> bytes;
    for (ssize_t got; (got = recv(server_.get(), bytes.data(), bytes.size(), 0)) > 0;) {
      texts.emplace_back(bytes.data(), static_cast<std::size_t>(got));
    }
    return texts;
  }

  /// A response to the query's n-th lookup, from 0.
  [[nodiscard]] std::string redirect(int lookup, const std::string& contact) const {
    return "SIP/2.0 302 Moved Temporarily\r\nFrom: a\r\nTo: b\r\nCall-ID: " +
           std::to_string(lookup) + "-" + std::to_string(query_.server_port) +
           "\r\nCSeq: 1 INVITE\r\nContact: " + contact + "\r\nLocation-Info: N\r\n\r\n";
  }

  qvn_core_ctrl core_;
  lrn_query query_;
  qvn_fd server_{qvn_nonblock_udp_socket("127.0.0.1", 0)};
};

TEST_F(lrn_lookup, stores_what_the_first_good_response_says) {
  EXPECT_EQ(look_up({redirect(0, "<sip:1;rn=+2125550199;npdi>"), redirect(0, "rn=another")}), 0);
  EXPECT_THAT(requests(), testing::ElementsAre(StartsWith("INVITE sip:+12125550100@127.0.0.1:")));
  EXPECT_EQ(query_.result, kLrnRedirected);
  EXPECT_STREQ(query_.lrn, "2125550199");
  EXPECT_EQ(query_.location_info, 'N');
  EXPECT_TRUE(query_.cseq == 1 && query_.branch == 1 && query_.tag == 1 && query_.call_seq == 1);
  // The second response of the first query costs the second query an attempt.
  EXPECT_EQ(look_up({redirect(1, "<sip:1@h>")}), 0);
  EXPECT_EQ(requests().size(), 2U);
  EXPECT_STREQ(query_.lrn, "2125550199") << "the response names none";
}

TEST_F(lrn_lookup, gives_up_after_three_attempts_and_leaves_what_it_held) {
  query_.result = kLrnOther;
  query_.location_info = 'Q';
  EXPECT_EQ(look_up({"SIP/2.0 302 Moved\r\nFrom: a\r\n\r\n", "", "SIP/2.0 100 Trying\r\n\r\n"}),
            -1);
  EXPECT_EQ(requests().size(), 3U);
  EXPECT_EQ(look_up({}), -1);
  EXPECT_EQ(requests().size(), 3U);
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
  EXPECT_NE(query_.local_port, 0);
  EXPECT_EQ(look_up({redirect(0, "rn=" + std::string(400, '7') + ";")}), 0);
  EXPECT_EQ(std::string(query_.lrn), std::string(99, '7'));
  const std::string place = "127.0.0.1:" + std::to_string(query_.local_port) + ";";
  EXPECT_THAT(requests(),
              testing::ElementsAre(testing::AllOf(HasSubstr("\r\nVia: SIP/2.0/UDP " + place),
                                                  HasSubstr("\r\nContact: <sip:web@" + place))));
}

}  // namespace
