/// Reading a connection of the console, the server's or the client's, in turns: one that streams
/// without end leaves time for the others.
#pragma once

#include <cerrno>
#include <cstddef>
#include <string_view>
#include <sys/socket.h>

#include "base/qvn_socket.h"

/// What a turn ended with.
struct cli_turn {
  enum {
    drained,     ///< nothing more has come
    unfinished,  ///< more may have come
    stopped,     ///< the caller has had enough
    ended,       ///< the connection
  } state;
  int error = 0;  ///< of an ended connection; 0: an orderly shutdown
};

/// Reads what has come, at most `reads` times, and hands it over; `on_bytes` returns whether to go
/// on. Waits for nothing.
template <std::size_t kReadSize, class OnBytes>
cli_turn cli_read_turn(int fd, int reads, OnBytes on_bytes) {
  for (int i = 0; i < reads; ++i) {
    char bytes[kReadSize];
    const ssize_t length = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT);
    if (length < 0) {
      return qvn_try_later(errno) ? cli_turn{cli_turn::drained} : cli_turn{cli_turn::ended, errno};
    }
    if (length == 0) {
      return {cli_turn::ended};
    }
    if (!on_bytes(std::string_view(bytes, static_cast<std::size_t>(length)))) {
      return {cli_turn::stopped};
    }
  }
  return {cli_turn::unfinished};
}
