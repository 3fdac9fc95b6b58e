#include "cli/cli_connection.h"

#include <arpa/inet.h>

cli_server_ctrl* g_cli_server_ctrl = nullptr;

cli_peer cli_peer_of(const cli_connection& connection) {
  cli_peer peer{};
  (void)inet_ntop(AF_INET, &connection.addr.sin_addr, peer.address, sizeof peer.address);
  peer.port = ntohs(connection.addr.sin_port);
  return peer;
}
