#include "tools/conf_record.h"

#include <algorithm>

#include "core/qvn_core_ctrl.h"

namespace {

void hand_over(recorded_line& line, const char* file_name, conf_callback handler) {
  const char* const directory = g_core_ctrl->conf_dir.c_str();
  line.is_reference = qvn_conf_is_reference(line.written.c_str());
  line.value = qvn_conf_resolve(directory, file_name, line.written.c_str()).data();
  if (line.value.empty()) {
    line.fate = conf_fate::no_reference;
  } else {
    line.fate =
        handler(line.key.c_str(), line.value.c_str()) == 0 ? conf_fate::taken : conf_fate::stopped;
  }
}

}  // namespace

std::vector<recorded_line> conf_survey(const char* file_name) {
  std::vector<recorded_line> lines;
  conf_reader reader(g_core_ctrl->conf_dir.c_str(), file_name);
  for (conf_line line; reader.is_open() && reader.next(line);) {
    lines.push_back(
        {line.number, line.continued, line.goes_on, line.kind, line.key, line.value, line.dropped});
  }
  return lines;
}

recorded_reading conf_read_section(const std::vector<recorded_line>& file, const char* file_name,
                                   const std::string& section, conf_callback handler) {
  recorded_reading reading{section, {}};
  const auto is_header = [](const recorded_line& line) { return line.kind == conf_kind::header; };
  auto line = std::ranges::find_if(file, [&](const recorded_line& one) {
    return is_header(one) && !section.empty() && one.key == section;
  });
  bool goes_on = line != file.end();
  while (goes_on && ++line != file.end() && !is_header(*line)) {
    if (line->is_content()) {
      recorded_line& read = reading.lines.emplace_back(*line);
      if (read.kind == conf_kind::pair) {
        hand_over(read, file_name, handler);
      }
      goes_on = read.fate != conf_fate::stopped;
    }
  }
  return reading;
}

std::set<std::string> conf_references(const std::vector<recorded_reading>& readings) {
  std::set<std::string> found;
  for (const recorded_reading& reading : readings) {
    for (const recorded_line& line : reading.lines) {
      if (line.is_reference && line.fate != conf_fate::no_reference) {
        found.insert(line.written);
      }
    }
  }
  return found;
}
