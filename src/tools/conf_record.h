/// What the daemon makes of the configuration files, line by line, for whoever reports on it.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "base/qvn_conf_file.h"

/// What becomes of a pair in the section that is read.
enum class conf_fate : uint8_t {
  unread,
  no_reference,  ///< a reference that leads nowhere: skipped
  taken,         ///< given to the handler
  stopped,       ///< given to the handler, which ended the reading
};

/// A conf_line with texts of its own.
struct recorded_line {
  /// Whether a section ought to have the line.
  [[nodiscard]] bool is_content() const {
    return kind == conf_kind::pair || kind == conf_kind::no_pair || kind == conf_kind::no_value;
  }

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
};

/// One reading of a section: its own lines that are meant as pairs, up to the one that ends it.
struct recorded_reading {
  std::string section;
  std::vector<recorded_line> lines;
};

/// Every line of the file.
[[nodiscard]] std::vector<recorded_line> conf_survey(const char* file_name);

/// Reads a section of the surveyed file as the daemon does. It has no lines when it is not there.
[[nodiscard]] recorded_reading conf_read_section(const std::vector<recorded_line>& file,
                                                 const char* file_name, const std::string& section,
                                                 conf_callback handler);

/// The references that led somewhere, as they are written: "section.$key".
[[nodiscard]] std::set<std::string> conf_references(const std::vector<recorded_reading>& readings);
