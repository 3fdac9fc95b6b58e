/// Tests that look at log lines.
#pragma once

#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "base/qvn_log.h"
#include "support/temp_dir.h"

namespace support {

inline std::vector<std::string> lines_of(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// "TIME  [LEVEL] source:NUMBER text" without time and number; any other line as it is.
inline std::string without_varying(const std::string& line) {
  constexpr std::size_t kBegin = 21;  // after the time and two blanks
  const std::size_t number = line.find(':', kBegin) + 1;
  const std::size_t end = line.find_first_not_of("0123456789", number);
  if (line.find_first_not_of("-0123456789: ") < kBegin || number == 0 || end == number ||
      end == std::string::npos || line[end] != ' ') {
    return line;
  }
  return line.substr(kBegin, number - 1 - kBegin) + line.substr(end);
}

/// Each test has the logger to itself: started, with an open file at level DEBUG whose first line,
/// on the level, is there already.
class log_fixture : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(qvn_log_init(), 0);
    ASSERT_EQ(qvn_log_file_open(path_.c_str(), kLogDebug, 0), 0);
    drain();
  }
  void TearDown() override {
    qvn_log_exit();
    qvn_log_uninit();
    qvn_log_file_close();
  }

  static void drain() { ASSERT_TRUE(qvn_log_drain(std::chrono::seconds(60))); }

  /// The file's written lines, without their times and line numbers.
  static std::vector<std::string> lines_in(const std::string& path) {
    drain();
    std::vector<std::string> lines = lines_of(path);
    for (std::string& line : lines) {
      line = without_varying(line);
    }
    return lines;
  }
  /// Those of the log after its first.
  [[nodiscard]] std::vector<std::string> lines() const {
    std::vector<std::string> lines = lines_in(path_);
    lines.erase(lines.begin(), lines.begin() + (lines.empty() ? 0 : 1));
    return lines;
  }

  const TempDir folder_{""};
  const std::string directory_ = folder_.path().string() + "/";
  const std::string path_ = directory_ + "test.log";
};

}  // namespace support
