#include "cli/cli_connection.h"

#include <arpa/inet.h>

#include "base/qvn_socket.h"

cli_server_ctrl* g_cli_server_ctrl = nullptr;

cli_peer cli_peer_of(const cli_connection& connection) {
  cli_peer peer{};
  (void)inet_ntop(AF_INET, &connection.addr.sin_addr, peer.address, sizeof peer.address);
  peer.port = qvn_get_port(reinterpret_cast<const sockaddr*>(&connection.addr));
  return peer;
}
