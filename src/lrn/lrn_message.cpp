#include "lrn/lrn_message.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "base/qvn_text.h"

namespace {

/// The text's line up to its line feed, which is taken off the front with it; the line itself ends
/// at its first carriage return.
std::string_view take_line(std::string_view& text) {
  const std::size_t feed = text.find('\n');
  std::string_view line = text.substr(0, feed);
  text.remove_prefix(feed == std::string_view::npos ? text.size() : feed + 1);
  return line.substr(0, line.find('\r'));
}

/// A position that does not exist holds no character that is asked for.
bool has_at(std::string_view line, std::size_t position, char wanted) {
  return position < line.size() && line[position] == wanted;
}

constexpr std::size_t kStatusCodeAt = 8;  // after "SIP/2.0 "

bool has_code(std::string_view status_line, std::string_view code) {
  return status_line.size() > kStatusCodeAt && status_line.substr(kStatusCodeAt).starts_with(code);
}

int32_t response_class(std::string_view status_line) {
  if (has_code(status_line, "302")) {
    return kLrnRedirected;
  }
  if (!has_code(status_line, "503")) {
    return kLrnOther;
  }
  const bool usual_reason =
      has_at(status_line, 11, ' ') && has_at(status_line, 12, 'S') && has_at(status_line, 20, 'U');
  return usual_reason ? kLrnServiceUnavailable : kLrnOther503;
}

/// The headers that a response is judged by, and their values.
enum known_header : std::size_t { kFrom, kTo, kCallId, kCseq, kContact, kLocationInfo, kHeaders };
using lrn_headers = std::array<std::optional<std::string_view>, kHeaders>;

/// A header is known by how its line begins; its value starts at a fixed position of the line.
constexpr std::pair<std::string_view, std::size_t> kKnownHeaders[kHeaders] = {
    {"From", 5}, {"To", 3}, {"Call-ID", 8}, {"CSeq", 5}, {"Contact", 8}, {"Location-Info", 15}};

lrn_headers read_headers(std::string_view text) {
  constexpr int kMostHeaders = 5;
  lrn_headers headers;
  int recognised = 0;
  while (!text.empty() && recognised <= kMostHeaders) {
    const std::string_view line = take_line(text);
    for (std::size_t i = 0; i < kHeaders; ++i) {
      const auto& [name, value_at] = kKnownHeaders[i];
      if (line.starts_with(name)) {
        headers[i] = line.substr(std::min(value_at, line.size()));
        ++recognised;
        break;
      }
    }
  }
  return headers;
}

/// The routing number of a Contact: after "rn=", without one "+", up to the first ";", or else the
/// first "@".
std::optional<std::string_view> routing_number(std::string_view contact) {
  constexpr std::string_view kParameter = "rn=";
  const std::size_t begin = contact.find(kParameter);
  if (begin == std::string_view::npos) {
    return std::nullopt;
  }
  std::string_view number = contact.substr(begin + kParameter.size());
  if (number.starts_with('+')) {
    number.remove_prefix(1);
  }
  const std::size_t semicolon = number.find(';');
  return number.substr(0, semicolon != std::string_view::npos ? semicolon : number.find('@'));
}

}  // namespace

std::size_t lrn_request_write(lrn_request_text& out, const lrn_invite& invite) {
  const int length = std::snprintf(
      out.data(), out.size(),
      "INVITE sip:+%s@%s:%d;user=phone SIP/2.0\r\n"
      "Via: SIP/2.0/UDP %s:%d;branch=z9h64bK%u\r\n"
      "From: <sip:%s@%s:%d;user=phone>;tag=%u\r\n"
      "To: <sip:%s@%s:%d;user=phone>\r\n"
      "Call-ID: %s\r\n"
      "Max-Forwards: 70\r\n"
      "Contact: <sip:%s@%s:%d;transport=udp>\r\n"
      "CSeq: %lu INVITE\r\n"
      "Content-Type: application/sdp\r\n"
      "Content-Length: 0\r\n\r\n",
      invite.number, invite.server_host, invite.server_port, invite.local_host, invite.local_port,
      invite.branch, invite.from_user, invite.local_host, invite.local_port, invite.tag,
      invite.number, invite.server_host, invite.server_port, invite.call_id, invite.from_user,
      invite.local_host, invite.local_port, invite.cseq);
  return std::min(static_cast<std::size_t>(std::max(length, 0)), out.size() - 1);
}

lrn_verdict lrn_response_read(std::string_view datagram, std::string_view call_id,
                              lrn_answer& answer) {
  std::string_view text = qvn_skip_blanks(datagram.substr(0, datagram.find('\0')));
  const std::string_view status_line = take_line(text);
  if (has_code(status_line, "1")) {
    return lrn_verdict::provisional;
  }
  const lrn_headers headers = read_headers(text);
  if (!headers[kFrom] || !headers[kTo] || !headers[kCallId] || !headers[kCseq]) {
    return lrn_verdict::headers_missing;
  }
  if (headers[kCseq]->find("INVITE") == std::string_view::npos ||
      qvn_skip_blanks(*headers[kCallId]) != call_id) {
    return lrn_verdict::not_ours;
  }
  answer = {};
  answer.result = response_class(status_line);
  if (const auto& value = headers[kLocationInfo]) {
    answer.location_info = value->empty() ? '\0' : value->front();
  }
  if (headers[kContact]) {
    answer.lrn = routing_number(*headers[kContact]);
  }
  return lrn_verdict::accepted;
}
