/// The operator console: a listener on the configured address, and a thread for each connection
/// that has logged in.
///
/// Main thread only; exit and uninit are safe in any state. A client can occupy nothing but its own
/// connection: the listener never waits for one, reads of each are bounded, and answers are sent by
/// the connection's own thread while no lock is held.
#pragma once

#include <cstdint>

/// Opens the listening socket. 0, or -1, logged, without memory, epoll or the address.
[[nodiscard]] int32_t qvn_cli_server_init();

/// Starts the listener. 0, or the error number.
[[nodiscard]] int32_t qvn_cli_server_start();

/// Ends the listener and waits until all connections have ended, which takes a second at most.
/// Returns 0.
int32_t qvn_cli_server_exit();

/// Closes what is left and frees the module. Returns 0.
int32_t qvn_cli_server_uninit();
