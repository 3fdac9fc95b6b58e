/// A proxy between daemons and the PostgreSQL server that breaks or holds up one connection of a
/// kind when so many bytes have passed.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace support {

/// All doors and connections are served by one thread; every function may be called by the test's.
class TcpProxy {
 public:
  enum class Direction { to_server, to_client };
  enum class Act { reset, close, hold };

  explicit TcpProxy(int server_port);
  ~TcpProxy();
  TcpProxy(const TcpProxy&) = delete;
  TcpProxy& operator=(const TcpProxy&) = delete;

  /// A port of 127.0.0.1 that leads to the server; doors are numbered from 0. `label`: the
  /// application name of the connections that its rules are about; others just pass.
  int open_door(const std::string& label);

  /// Once a labelled connection of the door has passed `after` bytes, it is cut, towards the client
  /// by a reset or an orderly close, or nothing passes any more until release(). Happens once.
  void arm(size_t door, Direction direction, long after, Act act);
  bool has_acted(size_t door) const;
  void release(size_t door);

  /// What the door's last labelled connection has passed.
  long passed(size_t door, Direction direction) const;

 private:
  struct Door;
  struct Connection;

  void run();
  void accept(size_t door);
  /// False when the connection is over.
  bool forward(Connection& connection, Direction direction);
  bool act(Connection& connection, Door& door);

  const int server_port_;
  mutable std::mutex mutex_;  ///< guards all below but the thread
  bool ending_ = false;
  std::vector<std::unique_ptr<Door>> doors_;
  std::vector<std::unique_ptr<Connection>> connections_;
  std::thread thread_;
};

}  // namespace support
