#include "tools/conf_findings.h"

#include <algorithm>
#include <cstdio>

void conf_findings::add(int line, std::string text, tool_status status) {
  std::ranges::replace_if(
      text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }, '?');
  lines_.emplace_back(line, std::move(text));
  status_ = std::max(status_, status);
}

void conf_findings::print() {
  std::ranges::stable_sort(lines_, {}, &std::pair<int, std::string>::first);
  for (const auto& [line, text] : lines_) {
    const std::string place = line > 0 ? ":" + std::to_string(line) : "";
    std::printf("%s%s: %s\n", path_.c_str(), place.c_str(), text.c_str());
  }
}
