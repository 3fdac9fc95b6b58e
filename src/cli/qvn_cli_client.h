/// The console's client, run in the foreground by `-r`: it logs in with the configured credentials,
/// sends what is typed on standard input, prints what the console sends to standard output, and
/// keeps the connection alive.
///
/// Two threads: the caller's edits lines, one more receives and sends heartbeats. No log is open in
/// this mode. Main thread only; exit and uninit are safe in any state.
#pragma once

#include <cstdint>

/// Seconds between two heartbeats on a console that drops idle connections after `expires` seconds.
[[nodiscard]] uint16_t cli_heartbeat_interval(uint16_t expires);

/// Makes the client's record. 0, or -1, with a message, when memory runs out.
[[nodiscard]] int32_t qvn_cli_client_init();

/// Connects, logs in, and takes lines until the operator leaves or, at the next line, the
/// connection has gone. 0, or -1, with a message, when there was no connection.
[[nodiscard]] int32_t qvn_cli_client_run();

/// Ends the receiving, which takes a second at most. Returns 0.
int32_t qvn_cli_client_exit();

/// Closes the connection and frees the record. Returns 0.
int32_t qvn_cli_client_uninit();
