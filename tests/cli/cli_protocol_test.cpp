#include "cli/cli_protocol.h"

#include <gtest/gtest.h>

#include "cli/qvn_cli_client.h"

namespace {

TEST(cli_protocol, a_request_is_split_at_its_first_blank) {
  const struct {
    const char* line;
    const char* word;
    const char* arguments;
  } cases[] = {
      {"help", "help", ""},         {"login a b c", "login", "a b c"},
      {"login ", "login", ""},      {"login  a", "login", " a"},
      {" help", "", "help"},        {"", "", ""},
      {"help\tme", "help\tme", ""},
  };
  for (const auto& c : cases) {
    const cli_request request = cli_request_split(c.line);
    EXPECT_EQ(request.word, c.word) << c.line;
    EXPECT_EQ(request.arguments, c.arguments) << c.line;
  }
}

TEST(cli_protocol, methods_are_whole_words_in_any_case) {
  const struct {
    const char* word;
    cli_method method;
  } cases[] = {
      {"heartbeat", cli_method::heartbeat},
      {"HEARTBEAT", cli_method::heartbeat},
      {"get_conf", cli_method::get_conf},
      {"Get_Conf", cli_method::get_conf},
      {"login", cli_method::login},
      {"reload_conf", cli_method::reload_conf},
      {"lOGOUT", cli_method::logout},
      {"HeLp", cli_method::help},
      {"unknown", cli_method::unknown},
      {"UNKNOWN", cli_method::unknown},
      {"hel", cli_method::unknown},
      {"helpx", cli_method::unknown},
      {"", cli_method::unknown},
      {"get-conf", cli_method::unknown},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(cli_method_find(c.word), c.method) << c.word;
  }
}

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
      {"", "", "", kAccepted},
      {"", "secret", "a b", kAccepted},
      {"admin", "", "", kAccepted},
      // The user's name is asked for, and not compared.
      {"admin", "secret", "admin secret", kAccepted},
      {"admin", "secret", "anybody secret", kAccepted},
      {"admin", "secret", "admin Secret", kWrong},
      {"admin", "secret", "admin secre", kWrong},
      {"admin", "secret", "admin secrets", kWrong},
      {"admin", "secret", "", kMissing},
      {"admin", "secret", "admin", kMissing},
      {"admin", "secret", "admin ", kMissing},
      {"admin", "secret", " secret", kMissing},
      // The password is all that follows the first blank.
      {"admin", "secret", "admin  secret", kWrong},
      {"admin", "secret", "admin secret ", kWrong},
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
  } cases[] = {{0, 1},  {1, 1},  {7, 1},    {8, 1},       {9, 1},
               {10, 2}, {11, 2}, {120, 57}, {3600, 1797}, {65535, 32764}};
  for (const auto& c : cases) {
    EXPECT_EQ(cli_heartbeat_interval(static_cast<uint16_t>(c.expires)), c.interval) << c.expires;
  }
}

}  // namespace
