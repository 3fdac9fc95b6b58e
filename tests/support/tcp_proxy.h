/// A proxy between daemons and the PostgreSQL server that breaks or holds up one connection of a
/// kind when so many bytes have passed.
#pragma once

#include <atomic>
#include <deque>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "base/qvn_fd.h"

namespace support {

/// One thread accepts, and one serves each connection; the functions are the test's.
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
  struct Door {
    qvn_fd listener;
    std::string label;
    Direction direction{};
    long after = -1;  ///< bytes until the rule acts; -1 without a rule
    Act act{};
    bool acted = false;
    bool holds = false;
    long passed[2] = {};
  };
  struct Connection;

  void run();
  void accept(Door& door);
  void serve(Connection& connection) const;
  /// These three are false when the connection is over.
  bool forward(Connection& connection, int from) const;
  bool pass_on(Connection& connection, int from, std::string_view bytes) const;
  bool act(Connection& connection) const;

  const int server_port_;
  std::atomic<bool> ending_ = false;
  mutable std::mutex mutex_;  ///< guards the doors
  std::deque<Door> doors_;
  std::list<Connection> connections_;  ///< the accepting thread's
  std::thread thread_;
};

}  // namespace support
