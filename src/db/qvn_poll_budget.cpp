#include "db/qvn_poll_budget.h"

#include <algorithm>

namespace {

using std::chrono::milliseconds;
using namespace std::chrono_literals;

constexpr milliseconds kStatement = 10s;
constexpr milliseconds kWhole = 15s;
constexpr milliseconds kMostLost = 5s;  // to trusted databases, before the others are hurried
constexpr milliseconds kHurried = 500ms;
constexpr milliseconds kSuspected = 2s;
constexpr milliseconds kLongTry = 5s;
constexpr milliseconds kShare = 10s;        // of all suspected ones
constexpr milliseconds kTooLittle = 500ms;  // to be worth a visit
constexpr auto kLongTryInterval = 60s;

pg_visit_limits all(milliseconds limit) {
  return {.connect = limit, .statement = limit, .whole = limit};
}

}  // namespace

pg_visit_limits poll_budget::for_trusted() const {
  if (lost_to_trusted_ >= kMostLost) {
    return all(kHurried);
  }
  return {.connect = std::min(connect_, kWhole), .statement = kStatement, .whole = kWhole};
}

std::optional<pg_visit_limits> poll_budget::for_suspected(poll_record& record, time_point now) {
  const milliseconds left = kShare - spent_on_suspected_;
  if (left < kTooLittle) {
    return std::nullopt;
  }
  milliseconds limit = kSuspected;
  if (now >= record.long_try) {
    record.long_try = now + kLongTryInterval;
    limit = kLongTry;
  }
  return all(std::min(limit, left));
}

void poll_budget::note(poll_record& record, milliseconds elapsed, bool ran_out, time_point now) {
  record.last_cycle = cycle_;
  if (record.suspected) {
    spent_on_suspected_ += elapsed;
  } else if (ran_out || elapsed >= kSuspected) {
    lost_to_trusted_ += elapsed;
  }
  if (ran_out && !record.suspected) {
    record.long_try = now + kLongTryInterval;
  }
  record.suspected = ran_out;
}
