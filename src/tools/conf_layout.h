/// How a configuration file is divided into sections, as the daemon's reader sees it, and what of
/// it no section has.
#pragma once

#include <span>
#include <string>
#include <utility>
#include <vector>

#include "tools/conf_findings.h"
#include "tools/conf_record.h"

class conf_layout {
 public:
  explicit conf_layout(std::vector<recorded_line> lines) : lines_(std::move(lines)) {}

  /// The first header of that name, or null.
  [[nodiscard]] const recorded_line* header(const std::string& name) const;

  /// The first header whose name begins so, or null.
  [[nodiscard]] const recorded_line* header_beginning(const std::string& beginning) const;

  /// Reports lines before the first section, headers without a name or without "]", and sections
  /// whose name was met before.
  void check_headers(conf_findings& findings) const;

  /// Reports lines that are longer than the reader takes at once.
  void check_long_lines(conf_findings& findings) const;

  /// Reports the pairs from line `stop` to the next header, which the daemon does not read;
  /// none for line 0.
  void check_unread(int stop, conf_findings& findings) const;

  [[nodiscard]] const std::vector<recorded_line>& lines() const { return lines_; }

 private:
  std::vector<recorded_line> lines_;  ///< of the whole file
};
