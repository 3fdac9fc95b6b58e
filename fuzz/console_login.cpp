/// The console before the login: a byte for the configured credentials, a line whose bytes are the
/// sizes of the reads, then the stream.
///
/// What the listener makes of received bytes is a function of its source file alone, so that
/// is included.

#include <strings.h>

#include "cli/qvn_cli_server.cpp"  // NOLINT(bugprone-suspicious-include)
#include "line_streams.h"
#include "support.h"

namespace {

/// Whether the line opens the console.
bool opens(const line_event& event) {
  const auto& [valid, line] = event;
  const auto [word, arguments] = split_line(line);
  if (!valid || strcasecmp(word.c_str(), "login") != 0) {
    return false;
  }
  const auto [user, password] = split_line(arguments);
  return g_core_ctrl->cli_login_user.empty() || g_core_ctrl->cli_login_pwd.empty() ||
         (!user.empty() && password == g_core_ctrl->cli_login_pwd);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz_input input(data, size);
  const uint8_t choice = input.byte();
  g_core_ctrl->cli_login_user = (choice & 1) != 0 ? "" : "operator";
  g_core_ctrl->cli_login_pwd = (choice & 2) != 0 ? "" : "5ecret";
  const std::vector<std::string> reads = checked_reads(input, kLoginLimits, kLoginReadSize);

  bool authenticated = false;
  const auto connection = std::make_unique<cli_connection>();
  for (const std::string& read : reads) {
    authenticated = login_bytes(*connection, read) || authenticated;
  }
  const line_events events = expected_events(reads, kLoginLimits);
  FUZZ_CHECK(authenticated == std::ranges::any_of(events, opens));
  return 0;
}
