/// The console's requests: lines, words and the rule of the login. Pure; any thread.
#pragma once

#include <string_view>

#include "base/qvn_line_buffer.h"

/// Before the login lines are short; the connection's and the client's may be longer.
inline constexpr qvn_line_buffer::limits kLoginLimits{.line = 199, .rest = 200};
inline constexpr qvn_line_buffer::limits kSessionLimits{.line = 2048, .rest = 2048};

/// Bytes of one read, before the login and after it.
inline constexpr std::size_t kLoginReadSize = 200;
inline constexpr std::size_t kSessionReadSize = 2048;
static_assert(kLoginReadSize <= qvn_line_buffer::room(kLoginLimits));
static_assert(kSessionReadSize <= qvn_line_buffer::room(kSessionLimits));

enum class cli_method { unknown, heartbeat, get_conf, reload_conf, login, logout, help };

/// A request line, split at its first blank.
struct cli_request {
  std::string_view word;
  std::string_view arguments;  ///< what follows the blank; empty for none
};
[[nodiscard]] cli_request cli_request_split(std::string_view line);

/// The method of that name in any case; unknown for none.
[[nodiscard]] cli_method cli_method_find(std::string_view word);

enum class cli_login { accepted, words_missing, wrong_password };

/// Judges the arguments of a login line. Without a configured user or password every login is
/// accepted. Otherwise a user word has to be there, but only the password is compared: all that
/// follows the first blank.
[[nodiscard]] cli_login cli_login_check(std::string_view arguments,
                                        std::string_view configured_user,
                                        std::string_view configured_password);
