#include "cli/cli_protocol.h"

#include <strings.h>

namespace {

struct named_method {
  std::string_view name;
  cli_method method;
};

/// In the order of their numbers; number 0, "UNKNOWN", is never asked for.
constexpr named_method cli_methods[] = {
    {"heartbeat", cli_method::heartbeat},     {"get_conf", cli_method::get_conf},
    {"reload_conf", cli_method::reload_conf}, {"login", cli_method::login},
    {"logout", cli_method::logout},           {"help", cli_method::help},
};

}  // namespace

cli_request cli_request_split(std::string_view line) {
  const std::size_t blank = line.find(' ');
  if (blank == std::string_view::npos) {
    return {.word = line, .arguments = {}};
  }
  return {.word = line.substr(0, blank), .arguments = line.substr(blank + 1)};
}

cli_method cli_method_find(std::string_view word) {
  for (const auto& [name, method] : cli_methods) {
    if (word.size() == name.size() && strncasecmp(word.data(), name.data(), name.size()) == 0) {
      return method;
    }
  }
  return cli_method::unknown;
}

cli_login cli_login_check(std::string_view arguments, std::string_view configured_user,
                          std::string_view configured_password) {
  if (configured_user.empty() || configured_password.empty()) {
    return cli_login::accepted;
  }
  const auto [user, password] = cli_request_split(arguments);
  if (user.empty() || password.empty()) {
    return cli_login::words_missing;
  }
  return password == configured_password ? cli_login::accepted : cli_login::wrong_password;
}
