#include "lrn/qvn_lrn.h"

#include <arpa/inet.h>
#include <cstdio>
#include <sys/socket.h>

#include "base/qvn_log.h"
#include "core/qvn_core_ctrl.h"

namespace {

constexpr const char* kLogSource = "qvn_lrn";

constexpr std::size_t kMostBytes = 1023;  // of a response that are looked at

in_addr local_address_of(int fd) {
  sockaddr_in local{};
  socklen_t length = sizeof local;
  (void)getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length);
  return local.sin_addr;
}

/// The address from which the system would send to that server; any when there is no way to it. A
/// socket of its own is asked: the query's takes responses from wherever they come.
in_addr address_towards(const sockaddr_in& server) {
  const qvn_fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  (void)connect(fd.get(), reinterpret_cast<const sockaddr*>(&server), sizeof server);
  return local_address_of(fd.get());
}

/// The address that the server is asked to answer to.
in_addr shown_address(const lrn_query& query) {
  const in_addr bound = local_address_of(query.fd.get());
  return bound.s_addr == htonl(INADDR_ANY) ? address_towards(query.server_addr) : bound;
}

/// Forms the next request; no two requests of a record are alike.
void build_request(lrn_query& query) {
  const in_addr address = shown_address(query);
  char local_host[INET_ADDRSTRLEN] = {};
  (void)inet_ntop(AF_INET, &address, local_host, sizeof local_host);
  (void)std::snprintf(query.call_id, sizeof query.call_id, "%d-%d", query.call_seq,
                      query.server_port);
  query.request_len = lrn_request_write(query.request, {.number = query.number.c_str(),
                                                        .from_user = query.from_user.c_str(),
                                                        .server_host = query.server_host,
                                                        .server_port = query.server_port,
                                                        .local_host = local_host,
                                                        .local_port = query.local_port,
                                                        .call_id = query.call_id,
                                                        .branch = query.branch,
                                                        .tag = query.tag,
                                                        .cseq = query.cseq});
  ++query.branch;
  ++query.cseq;
  ++query.tag;
  query.call_seq = static_cast<int32_t>(static_cast<uint32_t>(query.call_seq) + 1);  // wraps around
}

/// Waits up to a second for a datagram; its length, 0 when none came.
std::size_t receive(const lrn_query& query, char (&bytes)[kMostBytes]) {
  constexpr int kPatience = 1000;  // milliseconds
  if (qvn_wait_for_input(query.fd.get(), kPatience) != qvn_input::ready) {
    return 0;
  }
  const ssize_t length = recv(query.fd.get(), bytes, sizeof bytes, MSG_DONTWAIT);
  return length > 0 ? static_cast<std::size_t>(length) : 0;
}

void store(lrn_query& query, const lrn_answer& answer) {
  query.result = answer.result;
  query.location_info = answer.location_info.value_or(query.location_info);
  if (answer.lrn) {
    const std::size_t length = answer.lrn->copy(query.lrn, sizeof query.lrn - 1);
    query.lrn[length] = '\0';
  }
}

/// Sends the request and looks at what comes; whether it was accepted.
bool attempt(lrn_query& query) {
  // A send that fails is logged there; the response will be missing.
  (void)qvn_udp_reliable_send(query.fd.get(), query.request.data(), query.request_len,
                              query.server_addr);
  char bytes[kMostBytes];
  const std::size_t length = receive(query, bytes);
  if (length == 0) {
    return false;
  }
  lrn_answer answer;
  const lrn_verdict verdict = lrn_response_read({bytes, length}, query.call_id, answer);
  if (verdict == lrn_verdict::headers_missing) {
    QVN_LOG(kLogInfo, "%s", "Invalid lrn response, missing From or To or Call-ID header\n");
  } else if (verdict == lrn_verdict::accepted) {
    store(query, answer);
  }
  return verdict == lrn_verdict::accepted;
}

}  // namespace

int32_t qvn_lrn_socket_create(lrn_query& query) {
  constexpr int kPorts = 2000;
  const char* const configured = g_core_ctrl->lrn_local_ip;
  in_addr ignored{};
  const char* const address = inet_aton(configured, &ignored) != 0 ? configured : "0.0.0.0";
  query.fd.reset(qvn_nonblock_udp_socket_multi_trybind(address, g_core_ctrl->lrn_local_port, kPorts,
                                                       &query.local_port));
  return query.fd.get();
}

int32_t qvn_get_lrn_number(lrn_query& query) {
  constexpr int kAttempts = 3;
  build_request(query);
  for (int i = 0; i < kAttempts; ++i) {
    if (attempt(query)) {
      return 0;
    }
  }
  return -1;
}
