/// What stands on the console's connections: lines, words and the rule of the login. Pure; a reader
/// belongs to one thread.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/qvn_line_buffer.h"

/// Before the login lines are short; after it, and on the client, they may be longer.
inline constexpr qvn_line_buffer::limits kLoginLimits{.line = 199, .rest = 200};
inline constexpr qvn_line_buffer::limits kSessionLimits{.line = 2048, .rest = 2048};

/// Bytes of one read, before the login and after it.
inline constexpr std::size_t kLoginReadSize = 200;
inline constexpr std::size_t kSessionReadSize = 2048;
static_assert(kLoginReadSize <= qvn_line_buffer::room(kLoginLimits));
static_assert(kSessionReadSize <= qvn_line_buffer::room(kSessionLimits));

/// The numbers of the commands.
enum class cli_method : uint8_t { unknown, heartbeat, get_conf, reload_conf, login, logout, help };

/// A request line, split at its first blank.
struct cli_request {
  std::string_view word;
  std::string_view arguments;  ///< what follows the blank; empty for none
};
[[nodiscard]] cli_request cli_request_split(std::string_view line);

/// The method of that name in any case; unknown for none.
[[nodiscard]] cli_method cli_method_find(std::string_view word);

enum class cli_login : uint8_t { none, accepted, words_missing, wrong_password };

/// Judges a line; none for any but a login. Without a configured user or password every login is
/// accepted. Otherwise a user word has to be there, but only the password is compared: all that
/// follows the user's blank.
[[nodiscard]] cli_login cli_login_check(std::string_view line, std::string_view configured_user,
                                        std::string_view configured_password);

/// Masks, in place, the control characters of a line from the other side, line ends included unless
/// they are kept: it may not write lines of the log or steer a terminal. Returns the line.
const char* cli_masked(char* line, std::string_view kept = "\t");

/// The listener's reader of a connection that has not logged in.
class cli_login_reader {
 public:
  /// Takes at most kLoginReadSize bytes; true when a login in them is accepted. Further lines of
  /// such a read change nothing. Calls `on_refused(cli_login)` for each login that is not, and
  /// `on_invalid(text)` for what is too long.
  template <class OnRefused, class OnInvalid>
  [[nodiscard]] bool read(std::string_view received, std::string_view configured_user,
                          std::string_view configured_password, OnRefused on_refused,
                          OnInvalid on_invalid) {
    cli_login login = cli_login::none;
    const auto on_line = [&](const char* line) {
      if (login == cli_login::accepted) {
        return;
      }
      login = cli_login_check(line, configured_user, configured_password);
      if (login == cli_login::words_missing || login == cli_login::wrong_password) {
        on_refused(login);
      }
    };
    buffer_.feed(received, kLoginLimits, on_line,
                 [&](char* line) { on_invalid(cli_masked(line)); });
    return login == cli_login::accepted;
  }

 private:
  qvn_line_buffer buffer_;
};

/// The connection's reader of commands.
class cli_request_reader {
 public:
  /// Takes at most kSessionReadSize bytes. Calls `on_request(cli_method, arguments, text)` for each
  /// line, and `on_invalid(text)` for what is too long. Texts are masked.
  template <class OnRequest, class OnInvalid>
  void read(std::string_view received, OnRequest on_request, OnInvalid on_invalid) {
    const auto on_line = [&](char* line) {
      const auto [word, arguments] = cli_request_split(line);
      on_request(cli_method_find(word), arguments, cli_masked(line));
    };
    buffer_.feed(received, kSessionLimits, on_line,
                 [&](char* line) { on_invalid(cli_masked(line)); });
  }

 private:
  qvn_line_buffer buffer_;
};

/// The client's reader of what the console sends, or whoever else answers on its port.
class cli_answer_reader {
 public:
  /// Takes at most kSessionReadSize bytes. Calls `on_line(text)` for each line, and
  /// `on_invalid(text)` for what is too long. Texts are masked but for line feeds and carriage
  /// returns: the console's own answers hold line feeds.
  template <class OnLine, class OnInvalid>
  void read(std::string_view received, OnLine on_line, OnInvalid on_invalid) {
    constexpr std::string_view kKept = "\t\r\n";
    buffer_.feed(
        received, kSessionLimits, [&](char* line) { on_line(cli_masked(line, kKept)); },
        [&](char* line) { on_invalid(cli_masked(line, kKept)); });
  }

 private:
  qvn_line_buffer buffer_;
};
