/// What a rerating of one trunk and day loads, and the calls that it would price, by the daemon's
/// own loaders. Nothing is written.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rerate/rerate_day.h"
#include "rerate/rerate_task.h"
#include "tools/price_check.h"
#include "tools/price_rates.h"

class price_world {
 public:
  /// The connection is one of tool_connect.
  price_world(const price_check_options& options, pg_connection connection);

  /// Loads the trunk's settings and rates. Empty, or why a rerating could not price by them.
  [[nodiscard]] std::string load();

  /// Whether any rate is in force then. A rerating of the day fails without.
  [[nodiscard]] bool has_rates() const { return has_rates_; }

  /// The lines of the calls of that session, as a rerating loads them. Empty, or why there is none.
  [[nodiscard]] std::string load_calls(const std::string& session_id,
                                       std::vector<std::string>& lines);

  /// The rates of the number's codes that were not loaded: of each code those that begin nearest to
  /// the moment, the five before and the five after it.
  [[nodiscard]] std::vector<unloaded_rate> unloaded_rates(const call_facts& call);

  /// Valid after load(), as the next.
  [[nodiscard]] const rerate_trunk& trunk() const { return task_.reference.trunks.front(); }
  [[nodiscard]] pricing_terms terms() const;

 private:
  [[nodiscard]] PGconn* connection() const { return task_.connection.get(); }
  [[nodiscard]] std::string literal(std::string_view text) const;
  [[nodiscard]] std::string go_without_rates();
  [[nodiscard]] std::string why_no_call(const std::string& condition);

  rerate_task task_;
  const rerate_day day_;
  bool has_rates_ = true;
};
