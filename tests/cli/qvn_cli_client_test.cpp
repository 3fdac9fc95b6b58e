#include "cli/qvn_cli_client.h"

#include <gtest/gtest.h>

namespace {

TEST(cli_client, heartbeats_come_three_seconds_before_half_the_expiry) {
  const struct {
    int expires;
    int interval;
  } cases[] = {{0, 1}, {7, 1}, {9, 1}, {10, 2}, {11, 2}, {3600, 1797}, {65535, 32764}};
  for (const auto& c : cases) {
    EXPECT_EQ(cli_heartbeat_interval(static_cast<uint16_t>(c.expires)), c.interval) << c.expires;
  }
}

}  // namespace
