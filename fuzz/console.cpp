/// The console's three readers: a byte for the reader and the configured credentials, a line whose
/// bytes are the sizes of the reads, then the stream.

#include <algorithm>
#include <array>
#include <strings.h>

#include "base/qvn_text.h"
#include "cli/cli_protocol.h"
#include "line_streams.h"

namespace {

using reads = std::vector<std::string>;

std::string masked(std::string line, std::string_view kept = "\t") {
  qvn_mask_controls(line, kept);
  return line + '\n';
}

/// The number of a line's command, 0 for none.
int command_of(const std::string& line) {
  constexpr std::array kNames = {"heartbeat", "get_conf", "reload_conf", "login", "logout", "help"};
  const std::string word = split_line(line).first;
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    if (strcasecmp(word.c_str(), kNames[i]) == 0) {
      return static_cast<int>(i) + 1;
    }
  }
  return 0;
}

cli_login judge(const std::string& line, const std::string& user, const std::string& password) {
  if (command_of(line) != 4) {
    return cli_login::none;
  }
  const auto [given_user, given_password] = split_line(split_line(line).second);
  if (user.empty() || password.empty() || (!given_user.empty() && given_password == password)) {
    return cli_login::accepted;
  }
  return given_user.empty() || given_password.empty() ? cli_login::words_missing
                                                      : cli_login::wrong_password;
}

/// Up to the read with the login that is accepted.
void check_logins(reads taken, const std::string& user, const std::string& password) {
  std::string seen;
  const auto reader = std::make_unique<cli_login_reader>();
  const auto is_accepted = [&](const std::string& read) {
    return reader->read(
        read, user, password, [&](cli_login why) { seen += static_cast<char>(why); },
        [&](const char* text) { seen += std::string(text) + '\n'; });
  };
  const auto last = std::ranges::find_if(taken, is_accepted);
  const bool accepted = last != taken.end();
  taken.erase(accepted ? last + 1 : last, taken.end());
  std::string expected;
  bool opened = false;
  for (const auto& [valid, line] : expected_events(taken, kLoginLimits)) {
    if (!valid) {
      expected += masked(line);
    } else if (!opened) {
      const cli_login login = judge(line, user, password);
      opened = login == cli_login::accepted;
      expected += login > cli_login::accepted ? std::string(1, static_cast<char>(login)) : "";
    }
  }
  FUZZ_CHECK(accepted == opened && seen == expected);
}

void check_requests(const reads& taken) {
  std::string seen;
  const auto reader = std::make_unique<cli_request_reader>();
  for (const std::string& read : taken) {
    reader->read(
        read,
        [&](cli_method method, std::string_view arguments, const char* text) {
          seen += static_cast<char>(method);
          seen.append(arguments).append(text) += '\n';
        },
        [&](const char* text) { seen += std::string(text) + '\n'; });
  }
  std::string expected;
  for (const auto& [valid, line] : expected_events(taken, kSessionLimits)) {
    if (valid) {
      std::string arguments = split_line(line).second;
      qvn_mask_controls(arguments);
      expected += static_cast<char>(command_of(line)) + arguments;
    }
    expected += masked(line);
  }
  FUZZ_CHECK(seen == expected);
}

void check_answers(const reads& taken) {
  std::string seen;
  const auto reader = std::make_unique<cli_answer_reader>();
  for (const std::string& read : taken) {
    reader->read(
        read, [&](const char* text) { seen += std::string(text) + '\n'; },
        [&](const char* text) { seen += '!' + std::string(text) + '\n'; });
  }
  std::string expected;
  for (const auto& [valid, line] : expected_events(taken, kSessionLimits)) {
    expected += (valid ? "" : "!") + masked(line, "\t\r\n");
  }
  FUZZ_CHECK(seen == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz_input input(data, size);
  const uint8_t choice = input.byte();
  switch (choice / 4 % 3) {
    case 0:
      check_logins(checked_reads(input, kLoginLimits, kLoginReadSize),
                   (choice & 1) != 0 ? "" : "operator", (choice & 2) != 0 ? "" : "5ecret");
      break;
    case 1:
      check_requests(checked_reads(input, kSessionLimits, kSessionReadSize));
      break;
    default:
      check_answers(checked_reads(input, kSessionLimits, kSessionReadSize));
      break;
  }
  return 0;
}
