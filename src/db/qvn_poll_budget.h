/// How long the poller waits for a database, so that one which answers no more keeps no other from
/// being served. Pure: times in, limits out. The poller thread, under the database list lock.
///
/// A trusted database has all the time that a slow server may need. One that has run into a limit
/// is suspected until it answers again: it is visited after the trusted ones, has two seconds, and
/// all suspected ones share ten seconds of a cycle, the one that has waited longest first. Once a
/// minute it has more time, as two seconds are less than some distant servers need. A cycle that
/// has lost five seconds to databases that had been trusted gives the others half a second each. So
/// a cycle takes ten seconds longer than it would, however many databases are silent, and fifteen
/// more, and half a second each, when they fall silent.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "db/qvn_pg_connection.h"

/// What the poller remembers of a database.
struct poll_record {
  bool suspected = false;
  bool limits_statements = true;                     ///< false: the server refuses such a setting
  uint64_t last_cycle = 0;                           ///< the last one in which it was visited
  std::chrono::steady_clock::time_point long_try{};  ///< when it is given more time again
};

class poll_budget {
 public:
  using time_point = std::chrono::steady_clock::time_point;

  /// For the cycle of that number, which differs from those before. `connect` is how long a login
  /// to a trusted database may take.
  poll_budget(uint64_t cycle, std::chrono::milliseconds connect)
      : cycle_(cycle), connect_(connect) {}

  /// The limits of a database that is trusted.
  [[nodiscard]] pg_visit_limits for_trusted() const;

  /// The limits of a suspected one; none when the suspected ones have had their share of the cycle.
  [[nodiscard]] std::optional<pg_visit_limits> for_suspected(poll_record& record, time_point now);

  /// Whether the database is still to be visited in this cycle.
  [[nodiscard]] bool is_due(const poll_record& record) const { return record.last_cycle != cycle_; }

  /// Notes a visit that took as long and did, or did not, run into a limit.
  void note(poll_record& record, std::chrono::milliseconds elapsed, bool ran_out, time_point now);

 private:
  uint64_t cycle_;
  std::chrono::milliseconds connect_;
  std::chrono::milliseconds lost_to_trusted_{0};
  std::chrono::milliseconds spent_on_suspected_{0};
};
