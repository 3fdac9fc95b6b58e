/// What qvn_conf_check has to say, in the order of files and lines.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tools/tool_status.h"

/// The findings in one file.
class conf_findings {
 public:
  explicit conf_findings(std::string path) : path_(std::move(path)) {}

  /// Line 0: the file as a whole. kUnusable: the daemon would not start. Everything in the text
  /// that could disturb a terminal is replaced by "?".
  void add(int line, std::string text, tool_status status = kFindings);

  /// Something that may well be meant so: it leaves the status as it is.
  void note(int line, const std::string& text) { add(line, "note: " + text, kNothingToSay); }

  [[nodiscard]] tool_status status() const { return status_; }
  [[nodiscard]] const std::string& path() const { return path_; }

  /// Prints them as "FILE:LINE: text", sorted by line.
  void print();

 private:
  std::string path_;
  std::vector<std::pair<int, std::string>> lines_;
  tool_status status_ = kNothingToSay;
};
