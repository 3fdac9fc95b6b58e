/// A private PostgreSQL cluster of one test program, and a plain way to ask it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/shell.h"
#include "support/temp_dir.h"

struct pg_conn;

namespace support {

using Row = std::vector<std::string>;

/// A port of 127.0.0.1 that is free at this moment.
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

  /// Stops the server like a crash, and starts it again on its port.
  void restart_immediate() const;

  /// From now on the server takes TLS connections, which libpq prefers.
  void offer_tls();

  /// Makes a database with the portal's tables; its name is `name`.
  void create_database(const std::string& name);
  Session connect(const std::string& database) const { return Session(port_, database); }
  int port() const { return port_; }

 private:
  const std::filesystem::path& path() const { return folder_.path(); }
  /// Runs a program of PostgreSQL, given with its arguments, in the folder.
  Ending run(const std::string& program) const;
  void run_or_die(const std::string& program) const;

  TempDir folder_;
  std::string as_server_;  ///< runs what follows as the server's user
  int port_;
};

}  // namespace support
