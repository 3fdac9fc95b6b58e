/// A client of the operator console that a test holds in its hand.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "base/qvn_fd.h"

namespace support {

class Console {
 public:
  /// Connects to the port of 127.0.0.1; see connected(). `receive_buffer` in bytes makes a client
  /// that takes little before it has to read.
  explicit Console(int port, int receive_buffer = 0);
  /// The other side of a console's client: a connection that a test has accepted.
  explicit Console(qvn_fd connection) : fd_(std::move(connection)) {}

  bool connected() const { return fd_.get() >= 0; }
  /// Whether there is something to read, or comes within so many seconds.
  bool has_input(int seconds = 0) const;

  /// Sends all of it, or as much as the connection takes at once; the bytes sent.
  void send(std::string_view bytes) const;
  size_t send_what_fits(std::string_view bytes) const;

  /// Reads exactly as many bytes; fewer when the daemon closes or nothing comes for a long time.
  std::string read(size_t length) const;
  /// Reads up to and including `end`.
  std::string read_until(std::string_view end) const;
  /// Whether the daemon has closed the connection, or does so before long; what comes before that
  /// is thrown away.
  bool closes(int seconds = 20) const;
  /// Sends the login line and reads the welcome; whether it came.
  bool log_in(std::string_view arguments = "") const;
  void close() { fd_.reset(); }
  /// Resets the connection instead of closing it.
  void abort();

 private:
  qvn_fd fd_;
};

}  // namespace support
