/// Number-portability lookup: asks an LRN server over SIP for the location routing number of a
/// dialled number.
///
/// To use it: make a query record, fill in server_host, server_port, server_addr and from_user, and
/// create its socket. Then for each number fill in `number` and call qvn_get_lrn_number. A record
/// and its socket belong to one thread; several records work side by side. The local address and
/// the first local port are those of the core control record: without a valid address all of the
/// machine's are used, and the request names the one by which the server is reached; port 0 is any.
///
/// For lookups to come: the daemon does not call qvn_lrn_socket_create and qvn_get_lrn_number.
#pragma once

#include <cstdint>
#include <netinet/in.h>
#include <string>

#include "base/qvn_socket.h"
#include "lrn/lrn_message.h"

struct lrn_query {
  qvn_fd fd;                  ///< made by qvn_lrn_socket_create, closed with the record
  char server_host[16] = {};  ///< the server's address; filled in by the caller
  uint16_t server_port = 0;   ///< filled in by the caller
  uint16_t local_port = 0;    ///< of `fd`
  sockaddr_in server_addr{};  ///< the server's address and port again; filled in by the caller
  uint64_t cseq = 0;          ///< the four counters differ from query to query
  uint32_t branch = 0;
  uint32_t tag = 0;
  int32_t call_seq = 0;
  std::string from_user;       ///< who asks; filled in by the caller
  std::string number;          ///< the number to look up; filled in by the caller
  char call_id[50] = {};       ///< of the last query
  lrn_request_text request{};  ///< the last query's
  std::size_t request_len = 0;
  int32_t result = 0;         ///< class of the last accepted response (lrn_message.h)
  char lrn[100] = {};         ///< last routing number that was found, at most 99 characters
  char location_info = '\0';  ///< first character of the last Location-Info
};

/// Makes the query's socket, bound to the first free one of 2,000 local ports. The descriptor, or
/// -1, logged.
[[nodiscard]] int32_t qvn_lrn_socket_create(lrn_query& query);

/// Looks `number` up, with up to three attempts of one second each. 0 when a response was accepted:
/// `result` has its class, and `location_info` and `lrn` what it said, or what they held before
/// when it said nothing of it. -1 when none came; the three are as they were. Only a response
/// without its headers is logged, at INFO; one that belongs elsewhere costs an attempt.
[[nodiscard]] int32_t qvn_get_lrn_number(lrn_query& query);
