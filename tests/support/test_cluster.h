/// A private PostgreSQL cluster of one test program, and a plain way to ask it.
#pragma once

#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

#include "support/temp_dir.h"

struct pg_conn;

namespace support {

using Row = std::vector<std::string>;

/// A port of 127.0.0.1 that nobody listens on at this moment.
int free_port();

/// One connection to one database of the cluster. A statement that fails is a test failure.
class Session {
 public:
  Session(int port, const std::string& database);

  /// Runs one text of statements and returns the last one's rows; a null is an empty text.
  std::vector<Row> query(const std::string& sql);
  /// The first column of the first row, an empty text without rows.
  std::string value(const std::string& sql);

 private:
  struct Close {
    void operator()(pg_conn* connection) const;
  };
  std::unique_ptr<pg_conn, Close> connection_;
};

/// Makes the cluster in a temporary folder and starts it on a free port of 127.0.0.1; run as root,
/// the server runs as user postgres. It keeps no promise about a crash of the machine. The
/// destructor stops and removes it.
class TestCluster {
 public:
  static constexpr const char* kHost = "127.0.0.1";
  static constexpr const char* kUser = "portal";
  static constexpr const char* kPassword = "portal-password";

  TestCluster();
  ~TestCluster();

  /// Starts the server and waits until it takes connections.
  void start();
  /// Stops it in an orderly way, or at once like a crash.
  void stop(bool immediate = false);
  void restart_immediate() {
    stop(true);
    start();
  }

  /// From now on the server takes TLS connections, which libpq prefers.
  void offer_tls();

  /// Makes a database with the portal's tables; its name is `name`.
  void create_database(const std::string& name);
  Session connect(const std::string& database) const { return Session(port_, database); }
  int port() const { return port_; }

 private:
  TempDir folder_;
  int port_ = 0;
  pid_t server_ = -1;
};

}  // namespace support
