#include "cli/cli_protocol.h"

#include <cstring>
#include <strings.h>
#include <utility>

#include "base/qvn_text.h"

namespace {

/// In the order of their numbers. The first stands for every other word.
constexpr std::pair<cli_method, std::string_view> cli_methods[] = {
    {cli_method::unknown, "UNKNOWN"},   {cli_method::heartbeat, "heartbeat"},
    {cli_method::get_conf, "get_conf"}, {cli_method::reload_conf, "reload_conf"},
    {cli_method::login, "login"},       {cli_method::logout, "logout"},
    {cli_method::help, "help"},
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
  for (const auto& [id, name] : cli_methods) {
    if (word.size() == name.size() && strncasecmp(word.data(), name.data(), name.size()) == 0) {
      return id;
    }
  }
  return cli_method::unknown;
}

cli_login cli_login_check(std::string_view line, std::string_view configured_user,
                          std::string_view configured_password) {
  const auto [word, arguments] = cli_request_split(line);
  if (cli_method_find(word) != cli_method::login) {
    return cli_login::none;
  }
  if (configured_user.empty() || configured_password.empty()) {
    return cli_login::accepted;
  }
  const auto [user, password] = cli_request_split(arguments);
  if (user.empty() || password.empty()) {
    return cli_login::words_missing;
  }
  return password == configured_password ? cli_login::accepted : cli_login::wrong_password;
}

const char* cli_masked(char* line, std::string_view kept) {
  qvn_mask_controls({line, std::strlen(line)}, kept);
  return line;
}
