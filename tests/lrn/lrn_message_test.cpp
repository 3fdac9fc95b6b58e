#include "lrn/lrn_message.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr const char* kCallId = "7-5060";

TEST(lrn_request, has_these_very_bytes) {
  lrn_request_text text;
  lrn_invite invite{.number = "12125550100",
                    .from_user = "web",
                    .server_host = "192.0.2.1",
                    .server_port = 5060,
                    .local_host = "192.0.2.9",
                    .local_port = 40000,
                    .call_id = kCallId,
                    .branch = 4000000000,
                    .tag = 3,
                    .cseq = 10000000000};
  const std::size_t length = lrn_request_write(text, invite);
  EXPECT_STREQ(text.data(),
               "INVITE sip:+12125550100@192.0.2.1:5060;user=phone SIP/2.0\r\n"
               "Via: SIP/2.0/UDP 192.0.2.9:40000;branch=z9h64bK4000000000\r\n"
               "From: <sip:web@192.0.2.9:40000;user=phone>;tag=3\r\n"
               "To: <sip:12125550100@192.0.2.1:5060;user=phone>\r\n"
               "Call-ID: 7-5060\r\n"
               "Max-Forwards: 70\r\n"
               "Contact: <sip:web@192.0.2.9:40000;transport=udp>\r\n"
               "CSeq: 10000000000 INVITE\r\n"
               "Content-Type: application/sdp\r\n"
               "Content-Length: 0\r\n\r\n");
  EXPECT_EQ(length, std::strlen(text.data()));
  const std::string long_id(700, 'x');
  invite.call_id = long_id.c_str();
  EXPECT_EQ(lrn_request_write(text, invite), 611U);
  EXPECT_EQ(std::strlen(text.data()), 611U);
}

/// "RESULT LOCATION LRN" of an accepted response, "-" for what it does not say, or the verdict.
std::string read(const std::string& datagram) {
  lrn_answer answer;
  const lrn_verdict verdict = lrn_response_read(datagram, kCallId, answer);
  if (verdict != lrn_verdict::accepted) {
    return verdict == lrn_verdict::provisional       ? "provisional"
           : verdict == lrn_verdict::headers_missing ? "headers missing"
                                                     : "not ours";
  }
  const char location = answer.location_info.value_or('-');
  return std::to_string(answer.result) + " " + (location == '\0' ? '0' : location) + " " +
         (answer.lrn ? "[" + std::string(*answer.lrn) + "]" : "-");
}

/// A response with all that has to be there.
std::string response(const std::string& status, const std::string& more = "") {
  return status + "\r\nVia: SIP/2.0/UDP 192.0.2.9\r\nFrom: <sip:web>;tag=3\r\nTo: <sip:1>\r\n" +
         "Call-ID: " + kCallId + "\r\nCSeq: 1 INVITE\r\n" + more + "\r\n";
}

void expect(const std::vector<std::pair<std::string, const char*>>& cases) {
  for (const auto& [datagram, expected] : cases) {
    EXPECT_EQ(read(datagram), expected) << datagram;
  }
}

TEST(lrn_response, class_comes_from_the_status_line) {
  expect({{response("SIP/2.0 302 Moved Temporarily"), "2 - -"},
          {response("  \r\n SIP/2.0 302"), "2 - -"},
          {response("SIP/2.0 503 Service Unavailable"), "5 - -"},
          {response("SIP/2.0 503 Service unavailable"), "6 - -"},
          {response("SIP/2.0 503"), "6 - -"},
          {response("SIP/2.0 404 Not Found"), "7 - -"},
          {response("SIP/2.0 30"), "7 - -"},
          {response("SIP"), "7 - -"},
          {response("SIP/2.0 100 Trying"), "provisional"},
          {"SIP/2.0 1", "provisional"}});
}

TEST(lrn_response, routing_number_comes_from_the_contact) {
  const std::string ok = "SIP/2.0 302 Moved";
  expect({{response(ok, "Contact: <sip:+1212;rn=+12125550199;npdi@h>\r\n"), "2 - [12125550199]"},
          {response(ok, "Contact: <sip:+1212;rn=12125550199@h>\r\n"), "2 - [12125550199]"},
          {response(ok, "Contact: <sip:1;rn=5@h;x>\r\n"), "2 - [5@h]"},  // ";" before "@"
          {response(ok, "Contact: rn=;\r\n"), "2 - []"},
          {response(ok, "Contact: rn=+"), "2 - []"},
          {response(ok, "Contact: rn=555"), "2 - [555]"},  // to the end
          {response(ok, "Contact: <sip:1@h>\r\n"), "2 - -"},
          {response(ok, "Contact"), "2 - -"},
          {response(ok, "Location-Info: N\r\n"), "2 N -"},
          {response(ok, "Location-Info:\r\n"), "2 0 -"},
          {response(ok, "Contact: rn=1;\r\nLocation-Info: NX\r\n"), "2 N [1]"}});
}

TEST(lrn_response, headers_are_known_by_the_beginning_of_their_line) {
  const std::string ok = "SIP/2.0 302 Moved\r\n";
  const std::string rest = "From:\r\nCall-ID:7-5060\r\nCSeq:INVITE\r\n";
  expect({{ok + rest + "To", "2 - -"},
          {ok + rest + "Token", "2 - -"},
          {ok + rest + "to: x\r\n", "headers missing"},
          {ok + rest + " To: x\r\n", "headers missing"},
          {ok + "To:\nFrom:\nCSeq: INVITE\nCall-ID: \t 7-5060\n", "2 - -"},
          {ok + "To:\nFrom:\nCSeq: INVITE\nCall-ID: 7-5060 \n", "not ours"},
          {ok + "To:\nFrom:\nCSeq: INVITE\nCall-ID: 6-5060\n", "not ours"},
          {ok + "To:\nFrom:\nCSeq: 1 OPTIONS\nCall-ID: 7-5060\n", "not ours"},
          {ok + "From:\nCSeq: INVITE\nCall-ID: 7-5060\n", "headers missing"},
          {ok + "To:\nCSeq: INVITE\nCall-ID: 7-5060\n", "headers missing"},
          {ok + "To:\nFrom:\nCall-ID: 7-5060\n", "headers missing"},
          {ok + "To:\nFrom:\nCSeq: INVITE\n", "headers missing"},
          // After six of them nothing is read any more.
          {ok + "To:\nTo:\nFrom:\nFrom:\nCSeq: INVITE\nCall-ID: 7-5060\nContact: rn=5;\n", "2 - -"},
          {ok + "To:\nTo:\nTo:\nFrom:\nFrom:\nCSeq: INVITE\nCall-ID: 7-5060\n", "headers missing"},
          {"", "headers missing"},
          {std::string("SIP/2.0 302\r\nTo:\0\r\nFrom:\r\n", 26), "headers missing"}});
}

}  // namespace
