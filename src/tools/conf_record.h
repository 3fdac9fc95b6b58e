/// What the daemon's reader made of the configuration files, line by line, for whoever reports on
/// it.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "base/qvn_conf_file.h"

/// A conf_line with texts of its own.
struct recorded_line {
  int number;
  bool continued;
  bool goes_on;
  conf_fate fate;
  std::string key;
  std::string value;
  std::string written;
  std::string dropped;
  bool is_reference;
};

/// One reading, in the order of the file. Of a section only its own lines.
struct recorded_reading {
  std::string section;
  std::vector<recorded_line> lines;
};

/// Listens to every reading while it lives; one at a time. Main thread.
class conf_recorder final : public conf_observer {
 public:
  /// A list of many sections is read as many times: only a survey keeps the lines of others.
  enum class scope { own_lines, all_lines };

  explicit conf_recorder(scope kept = scope::own_lines) : kept_(kept) { qvn_conf_observe(this); }
  ~conf_recorder() override { qvn_conf_observe(nullptr); }
  conf_recorder(const conf_recorder&) = delete;
  conf_recorder& operator=(const conf_recorder&) = delete;

  void begins(const char* section) override { readings_.push_back({section, {}}); }
  void reads(const conf_line& line) override;

  /// The references that led somewhere, as they are written: "section.$key".
  [[nodiscard]] std::set<std::string> references() const;

  /// In the order in which they began.
  [[nodiscard]] const std::vector<recorded_reading>& readings() const { return readings_; }

 private:
  scope kept_;
  std::vector<recorded_reading> readings_;
};

/// Every line of the file, as a reader sees it that never finds its section.
[[nodiscard]] std::vector<recorded_line> conf_survey(const char* directory, const char* file_name);
