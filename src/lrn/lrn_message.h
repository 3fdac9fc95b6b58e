/// The two messages of a number-portability lookup: the INVITE (RFC 3261) that asks, and the
/// redirect that answers with a routing number in its Contact (RFC 4694). Pure: no socket, clock or
/// log, and safe for whatever bytes come.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

/// What an INVITE is made of. The texts may be of any length.
struct lrn_invite {
  const char* number;
  const char* from_user;
  const char* server_host;
  uint16_t server_port;
  const char* local_host;
  uint16_t local_port;
  const char* call_id;
  uint32_t branch;
  uint32_t tag;
  uint64_t cseq;
};

/// Room for an INVITE of at most 611 characters and its NUL.
using lrn_request_text = std::array<char, 612>;

/// Writes the INVITE, cut at its room; returns its length.
[[nodiscard]] std::size_t lrn_request_write(lrn_request_text& out, const lrn_invite& invite);

/// Response classes.
inline constexpr int32_t kLrnRedirected = 2;          ///< 302
inline constexpr int32_t kLrnServiceUnavailable = 5;  ///< 503 with the usual reason
inline constexpr int32_t kLrnOther503 = 6;
inline constexpr int32_t kLrnOther = 7;

enum class lrn_verdict {
  accepted,
  provisional,      ///< the final response is still to come
  headers_missing,  ///< no From, To, Call-ID or CSeq
  not_ours,         ///< answers something else
};

/// An accepted response. The texts lie in the datagram; absent when it has no such header.
struct lrn_answer {
  int32_t result = kLrnOther;
  std::optional<char> location_info;    ///< first character of the header's value, or NUL
  std::optional<std::string_view> lrn;  ///< routing number, perhaps empty
};

/// Reads a datagram, up to its first NUL. `answer` is filled when it is accepted: a final response
/// with all headers, to an INVITE, with that Call-ID.
[[nodiscard]] lrn_verdict lrn_response_read(std::string_view datagram, std::string_view call_id,
                                            lrn_answer& answer);
