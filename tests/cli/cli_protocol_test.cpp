#include "cli/cli_protocol.h"

#include <gtest/gtest.h>

#include "cli/qvn_cli_client.h"

namespace {

TEST(cli_protocol, a_login_needs_two_words_and_the_exact_password) {
  constexpr auto kAccepted = cli_login::accepted;
  constexpr auto kMissing = cli_login::words_missing;
  constexpr auto kWrong = cli_login::wrong_password;
  const struct {
    const char* user;
    const char* password;
    const char* arguments;
    cli_login result;
  } cases[] = {
      // Without a configured user or password everybody may come in.
      {"", "secret", "a b", kAccepted},
      {"admin", "", "", kAccepted},
      // The user's name is asked for, and not compared.
      {"admin", "secret", "anybody secret", kAccepted},
      {"admin", "secret", "admin secre", kWrong},
      {"admin", "secret", "admin secrets", kWrong},
      {"admin", "secret", "admin ", kMissing},
      {"admin", "secret", " secret", kMissing},
      // The password is all that follows the first blank.
      {"admin", "secret", "admin  secret", kWrong},
      {"admin", "two words", "admin two words", kAccepted},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(cli_login_check(c.arguments, c.user, c.password), c.result)
        << c.user << ":" << c.password << " login " << c.arguments;
  }
}

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
