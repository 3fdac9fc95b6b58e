/// How a configuration file is divided into lines and sections, as the daemon's reader sees it, and
/// what the daemon makes of a section.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "base/qvn_conf_file.h"
#include "tools/conf_findings.h"

/// What becomes of a pair in the section that is read.
enum class conf_fate : uint8_t {
  unread,
  no_reference,  ///< a reference that leads nowhere: skipped
  taken,         ///< given to the handler
  stopped,       ///< given to the handler, which ended the reading
};

/// A conf_line with texts of its own.
struct recorded_line {
  int number;
  bool continued;
  bool goes_on;
  conf_kind kind;
  std::string key;
  std::string written;  ///< the value as it stands in the file
  std::string dropped;
  bool is_reference = false;
  conf_fate fate = conf_fate::unread;
  std::string value = {};  ///< as the handler gets it

  /// Whether a section ought to have the line.
  [[nodiscard]] bool is_content() const {
    return kind == conf_kind::pair || kind == conf_kind::no_pair || kind == conf_kind::no_value;
  }
};

/// One reading of a section: the lines that it ought to have, up to the one that ends it.
struct recorded_reading {
  std::string section;
  std::vector<recorded_line> lines;
};

/// The references that led somewhere, as they are written: "section.$key".
[[nodiscard]] std::set<std::string> conf_references(const std::vector<recorded_reading>& readings);

class conf_layout {
 public:
  /// Of a file in the configuration directory.
  explicit conf_layout(const char* file_name);

  /// Reads a section as the daemon does. It has no lines when it is not there.
  [[nodiscard]] recorded_reading read(const std::string& section, conf_callback handler) const;

  /// The first header of that name, or null.
  [[nodiscard]] const recorded_line* header(const std::string& name) const;

  /// The first header whose name begins so, or null.
  [[nodiscard]] const recorded_line* header_beginning(const std::string& beginning) const;

  /// Reports lines before the first section, headers without a name or without "]", and sections
  /// whose name was met before.
  void check_headers(conf_findings& findings) const;

  /// Reports lines that are longer than the reader takes at once.
  void check_long_lines(conf_findings& findings) const;

  /// Reports the pairs after the one that ended the reading of its section, up to the next header:
  /// the daemon does not read them.
  void check_unread(const recorded_reading& reading, conf_findings& findings) const;

  [[nodiscard]] const std::vector<recorded_line>& lines() const { return lines_; }

 private:
  void hand_over(recorded_line& line, conf_callback handler) const;

  const char* file_name_;
  std::vector<recorded_line> lines_;  ///< of the whole file
};
