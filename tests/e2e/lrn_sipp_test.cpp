// The number lookup against a SIP implementation that is not ours: sipp, where it is installed.
#include <cstring>
#include <gtest/gtest.h>

#include "core/qvn_core_ctrl.h"
#include "lrn/qvn_lrn.h"
#include "support/shell.h"
#include "support/temp_dir.h"
#include "support/test_cluster.h"

namespace {

constexpr const char* kRedirectScenario = R"(<?xml version="1.0" encoding="ISO-8859-1" ?>
<scenario name="redirect">
  <recv request="INVITE"/>
  <send>
    <![CDATA[
      SIP/2.0 302 Moved Temporarily
      [last_Via:]
      [last_From:]
      [last_To:];tag=[call_number]
      [last_Call-ID:]
      [last_CSeq:]
      Contact: <sip:+12125550100;rn=+12125550199;npdi@[local_ip]:[local_port]>
      Location-Info: N
      Content-Length: 0

    ]]>
  </send>
</scenario>
)";

TEST(LrnSipp, redirect_of_a_sip_server_gives_the_routing_number) {
  const support::TempDir folder("pid");
  if (support::shell(folder.path(), "command -v sipp").status != 0)
    GTEST_SKIP() << "sipp is not installed";
  const int port = support::free_port();
  support::write_file(folder.path() / "redirect.xml", kRedirectScenario);
  support::shell(folder.path(), "sipp -sf redirect.xml -i 127.0.0.1 -nostdin -p " +
                                    std::to_string(port) + " >out 2>&1 & echo $! >pid");

  qvn_core_ctrl core;
  g_core_ctrl = &core;
  std::strcpy(core.lrn_local_ip, "127.0.0.1");
  core.lrn_local_port = 22000;
  lrn_query query;
  std::strcpy(query.server_host, "127.0.0.1");
  query.server_port = static_cast<uint16_t>(port);
  query.server_addr.sin_family = AF_INET;
  query.server_addr.sin_port = htons(query.server_port);
  query.server_addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  query.from_user = "web";
  query.number = "12125550100";
  ASSERT_GE(qvn_lrn_socket_create(query), 0);
  // Until sipp listens a lookup fails.
  EXPECT_TRUE(support::wait_until([&] { return qvn_get_lrn_number(query) == 0; }, 30))
      << support::read_file(folder.path() / "out");
  EXPECT_EQ(query.result, kLrnRedirected);
  EXPECT_STREQ(query.lrn, "12125550199");
  EXPECT_EQ(query.location_info, 'N');
  support::shell(folder.path(), "kill -9 $(cat pid)");
  g_core_ctrl = nullptr;
}

}  // namespace
