/// The console before the login: a byte for the configured credentials, a line whose bytes are the
/// sizes of the reads, then the stream.
///
/// What the listener makes of received bytes is a function of its source file alone, so that
/// is included.

#include <memory>
#include <strings.h>
#include <unistd.h>

#include "base/qvn_log_state.h"
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

/// A connection that cannot be waited for is told of and closed.
void fuzz_prepare() {
  const auto control = std::make_unique<cli_server_ctrl>();
  g_cli_server_ctrl = control.get();
  (void)qvn_log_set_level(kLogError);
  const uint32_t queued = g_curr_log_que_size;
  add_initial(qvn_fd(dup(STDERR_FILENO)), {});
  FUZZ_CHECK(!control->init_list && control->init_count == 0 && g_curr_log_que_size == queued + 1);
  (void)qvn_log_set_level(kLogEmergency);
  g_cli_server_ctrl = nullptr;
}

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
