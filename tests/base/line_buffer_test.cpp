#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "base/qvn_line_buffer.h"
#include "cli/cli_protocol.h"

namespace {

using std::string_literals::operator""s;
using texts = std::vector<std::string>;

constexpr qvn_line_buffer::limits kShort{.line = 5, .rest = 6};

/// What a buffer hands over: lines marked with ">", invalid ones with "!".
class recorder {
 public:
  explicit recorder(const qvn_line_buffer::limits& allowed) : allowed_(allowed) {}

  void feed(std::string_view received) {
    buffer_->feed(
        received, allowed_, [&](const char* line) { calls.push_back(">"s + line); },
        [&](const char* line) { calls.push_back("!"s + line); });
  }
  [[nodiscard]] std::size_t kept() const { return buffer_->length(); }

  texts calls;

 private:
  qvn_line_buffer::limits allowed_;
  // On the heap, where the address sanitizer sees a byte written behind it.
  std::unique_ptr<qvn_line_buffer> buffer_ = std::make_unique<qvn_line_buffer>();
};

texts calls_of(const qvn_line_buffer::limits& allowed, const texts& pieces) {
  recorder lines(allowed);
  for (const std::string& piece : pieces) {
    lines.feed(piece);
  }
  return lines.calls;
}

/// The rules with plain texts, whatever their length.
class model {
 public:
  explicit model(const qvn_line_buffer::limits& allowed) : allowed_(allowed) {}

  void feed(const std::string& received) {
    held_ += received;
    for (std::size_t end = held_.find("\r\n"); end != std::string::npos; end = held_.find("\r\n")) {
      hand_over(end < allowed_.line, held_.substr(0, end));
      held_.erase(0, end + 2);
    }
    if (held_.size() - (held_.ends_with('\r') ? 1 : 0) >= allowed_.rest) {
      hand_over(false, held_);
      held_.clear();
    }
  }
  [[nodiscard]] std::size_t kept() const { return held_.size(); }

  texts calls;

 private:
  void hand_over(bool valid, const std::string& line) {
    calls.push_back((valid ? ">"s : "!"s) + line.c_str());  // a NUL ends the text
  }

  qvn_line_buffer::limits allowed_;
  std::string held_;
};

TEST(line_buffer, a_line_is_the_same_however_it_is_split) {
  const std::string stream = "one\r\n\r\nt\rwo\r\n\nabcd\r\nA\0B\r\n\r\r\n"s;
  const texts whole = {">one", ">", ">t\rwo", ">\nabcd", ">A", ">\r"};
  constexpr qvn_line_buffer::limits kAllowed{.line = 6, .rest = 6};
  for (std::size_t first = 0; first <= stream.size(); ++first) {
    for (std::size_t second = first; second <= stream.size(); ++second) {
      EXPECT_EQ(calls_of(kAllowed, {stream.substr(0, first), stream.substr(first, second - first),
                                    stream.substr(second)}),
                whole)
          << first << " " << second;
    }
  }
}

TEST(line_buffer, what_is_too_long_is_handed_over_as_invalid_and_dropped) {
  const struct {
    const char* what;
    texts pieces;
    texts calls;
    std::size_t kept;
  } cases[] = {
      {"the longest line", {"1234\r\n"}, {">1234"}, 0},
      {"a line too long", {"12345\r\n"}, {"!12345"}, 0},
      {"a line too long between others", {"a\r\n12345\r\nb\r\n"}, {">a", "!12345", ">b"}, 0},
      {"the longest rest", {"12345"}, {}, 5},
      {"the longest rest gets its end", {"12345", "\r\n"}, {"!12345"}, 0},
      {"a rest too long", {"123456"}, {"!123456"}, 0},
      {"a rest that grows too long", {"123", "456"}, {"!123456"}, 0},
      {"what follows a dropped rest is a line again", {"123456", "7\r\n"}, {"!123456", ">7"}, 0},
      {"the end of a dropped rest is an empty line", {"123456", "\r\n"}, {"!123456", ">"}, 0},
      {"a rest and half its end", {"12345\r"}, {}, 6},
      {"half an end that was none", {"12345\r", "x"}, {"!12345\rx"}, 0},
      {"a rest too long and half its end", {"123456\r"}, {"!123456\r"}, 0},
      {"a rest behind lines", {"a\r\nb\r\n123456"}, {">a", ">b", "!123456"}, 0},
      {"nothing", {""}, {}, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    recorder lines(kShort);
    for (const std::string& piece : c.pieces) {
      lines.feed(piece);
    }
    EXPECT_EQ(lines.calls, c.calls);
    EXPECT_EQ(lines.kept(), c.kept);
  }
}

TEST(line_buffer, the_longest_line_of_a_session_is_a_line_wherever_it_is_split) {
  const std::string longest(kSessionLimits.line - 1, 'x');
  const std::string stream = longest + "\r\n";
  for (std::size_t at = stream.size() - kSessionReadSize; at <= kSessionReadSize; ++at) {
    EXPECT_EQ(calls_of(kSessionLimits, {stream.substr(0, at), stream.substr(at), "y\r\n"}),
              (texts{">" + longest, ">y"}))
        << at;
  }
  const std::string one_more = longest + "x\r\n";
  EXPECT_EQ(calls_of(kSessionLimits, {one_more.substr(0, 1000), one_more.substr(1000)}),
            (texts{"!" + longest + "x"}));
}

TEST(line_buffer, the_largest_reads_fit_behind_the_longest_rest) {
  const std::string rest = std::string(kSessionLimits.rest - 1, 'r') + "\r";
  const std::string read(kSessionReadSize, 'x');
  ASSERT_EQ(rest.size() + read.size(), qvn_line_buffer::kCapacity);
  EXPECT_EQ(calls_of(kSessionLimits, {rest, read, "a\r\n"}), (texts{"!" + rest + read, ">a"}));
}

TEST(line_buffer, a_cleared_buffer_keeps_nothing) {
  qvn_line_buffer buffer;
  texts calls;
  const auto record = [&](const char* line) { calls.push_back(line); };
  buffer.feed("login a", kLoginLimits, record, record);
  buffer.clear();
  buffer.feed("help\r\n", kLoginLimits, record, record);
  EXPECT_EQ(calls, texts{"help"});
}

TEST(line_buffer, agrees_with_a_plain_model_under_random_input) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  const auto below = [&](std::size_t limit) { return random() % limit; };
  for (const qvn_line_buffer::limits& allowed : {kShort, kLoginLimits, kSessionLimits}) {
    recorder lines(allowed);
    model expected(allowed);
    for (int round = 0; round < 2000; ++round) {
      std::string piece(below(std::min(qvn_line_buffer::room(allowed), 3 * allowed.rest)), '\0');
      const std::size_t rarity = 1 + below(4 * allowed.line);
      for (char& byte : piece) {
        byte = below(rarity) > 3 ? 'a' : "\r\n\0b"[below(4)];
      }
      if (below(2) == 0) {
        piece += "\r\n";
      }
      lines.feed(std::string_view(piece).substr(0, qvn_line_buffer::room(allowed)));
      expected.feed(piece.substr(0, qvn_line_buffer::room(allowed)));
      ASSERT_EQ(lines.kept(), expected.kept()) << round;
    }
    EXPECT_EQ(lines.calls, expected.calls);
  }
}

}  // namespace
