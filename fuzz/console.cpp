/// The console's three readers: a byte for the reader and the configured credentials, a line whose
/// bytes are the sizes of the reads, then the stream. How a stream is cut into reads must not
/// change what comes out.

#include <algorithm>
#include <array>
#include <strings.h>
#include <utility>
#include <vector>

#include "base/qvn_text.h"
#include "cli/cli_protocol.h"
#include "support.h"

namespace {

using reads = std::vector<std::string>;

/// A line or, with false, what was handed over as invalid.
using line_events = std::vector<std::pair<bool, std::string>>;

/// What a stream becomes, read for read.
line_events expected_events(const reads& taken, const qvn_line_buffer::limits& allowed) {
  line_events events;
  std::string kept;
  for (const std::string& read : taken) {
    kept += read;
    const std::size_t looked_at = kept.size() - read.size();  // but for half of a line end
    std::size_t end = kept.find("\r\n", looked_at > 0 ? looked_at - 1 : 0);
    for (; end != std::string::npos; end = kept.find("\r\n")) {
      events.emplace_back(end < allowed.line, fuzz_before_nul(kept.substr(0, end)));
      kept.erase(0, end + 2);
    }
    const std::size_t text = kept.size() - (kept.ends_with('\r') ? 1 : 0);
    if (text >= allowed.rest) {
      events.emplace_back(false, fuzz_before_nul(kept.substr(0, text)));
      kept.erase(0, text);
    }
  }
  return events;
}

/// Cuts a stream into reads of at most `most` bytes; each byte of `sizes` stands for one of the
/// first, in turn.
reads cut_stream(std::string_view stream, std::string_view sizes, std::size_t most) {
  constexpr std::size_t kSmallReads = 40;
  constexpr std::size_t kSmall = 127;  // bytes that stand for themselves
  reads cut;
  for (std::size_t i = 0; !stream.empty(); ++i) {
    const bool whole = sizes.empty() || i >= kSmallReads;
    const std::size_t byte = whole ? 255 : static_cast<uint8_t>(sizes[i % sizes.size()]);
    const std::size_t wanted = byte <= kSmall ? byte : (byte - kSmall) * most / (255 - kSmall);
    cut.emplace_back(stream.substr(0, std::clamp<std::size_t>(wanted, 1, most)));
    stream.remove_prefix(cut.back().size());
  }
  return cut;
}

/// The stream that an input stands for: after each "~" a byte says how many times eight letters
/// follow, so that lines at the limits take few bytes.
std::string unpack_stream(std::string_view packed) {
  constexpr std::size_t kMostBytes = 6144;
  std::string stream;
  for (std::size_t i = 0; i < packed.size() && stream.size() < kMostBytes; ++i) {
    if (packed[i] == '~' && i + 1 < packed.size()) {
      stream.append(std::size_t{8} * static_cast<uint8_t>(packed[++i]), 'a');
    } else {
      stream += packed[i];
    }
  }
  return stream;
}

/// Whether a stream has a line so long that what becomes of it depends on when it comes.
bool has_overlong_line(std::string_view stream, std::size_t most) {
  std::size_t end = 0;
  while ((end = stream.find("\r\n")) < most) {
    stream.remove_prefix(end + 2);
  }
  return std::min(end, stream.size()) >= most;
}

/// The first word of a line and what follows its blank.
std::pair<std::string, std::string> split_line(const std::string& line) {
  const std::size_t blank = std::min(line.find(' '), line.size());
  return {line.substr(0, blank), line.substr(std::min(blank + 1, line.size()))};
}

std::string masked(std::string line, std::string_view kept = "\t") {
  qvn_mask_controls(line, kept);
  return line + '\n';
}

/// The number of a line's command, 0 for none.
int command_of(const std::string& line) {
  constexpr std::array kNames = {"heartbeat", "get_conf", "reload_conf", "login", "logout", "help"};
  const std::string word = split_line(line).first;
  const auto* const found = std::ranges::find_if(
      kNames, [&](const char* name) { return strcasecmp(word.c_str(), name) == 0; });
  return found == kNames.end() ? 0 : static_cast<int>(found - kNames.begin()) + 1;
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
        {fuzz_copy(read).get(), read.size()}, user, password,
        [&](cli_login why) { seen += static_cast<char>(why); },
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

std::string check_requests(const reads& taken) {
  std::string seen;
  const auto reader = std::make_unique<cli_request_reader>();
  for (const std::string& read : taken) {
    reader->read(
        {fuzz_copy(read).get(), read.size()},
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
  return seen;
}

std::string check_answers(const reads& taken) {
  std::string seen;
  const auto reader = std::make_unique<cli_answer_reader>();
  for (const std::string& read : taken) {
    reader->read(
        {fuzz_copy(read).get(), read.size()},
        [&](const char* text) { seen += std::string(text) + '\n'; },
        [&](const char* text) { seen += '!' + std::string(text) + '\n'; });
  }
  std::string expected;
  for (const auto& [valid, line] : expected_events(taken, kSessionLimits)) {
    expected += (valid ? "" : "!") + masked(line, "\t\r\n");
  }
  FUZZ_CHECK(seen == expected);
  return seen;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz_input input(data, size);
  const uint8_t choice = input.byte();
  const std::string_view sizes = input.field('\n');
  const std::string stream = unpack_stream(input.rest());
  if (choice / 4 % 3 == 0) {
    check_logins(cut_stream(stream, sizes, kLoginReadSize), (choice & 1) != 0 ? "" : "operator",
                 (choice & 2) != 0 ? "" : "5ecret");
    return 0;
  }
  const auto check = choice / 4 % 3 == 1 ? check_requests : check_answers;
  const std::string seen = check(cut_stream(stream, sizes, kSessionReadSize));
  if (!has_overlong_line(stream, kSessionLimits.rest)) {
    FUZZ_CHECK(seen == check(cut_stream(stream, "", kSessionReadSize)));
    FUZZ_CHECK(seen == check(cut_stream(stream, "\1", kSessionReadSize)));
  }
  return 0;
}
