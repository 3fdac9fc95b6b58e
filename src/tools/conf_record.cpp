#include "tools/conf_record.h"

void conf_recorder::reads(const conf_line& line) {
  if (kept_ == scope::all_lines || line.fate >= conf_fate::no_pair) {
    readings_.back().lines.push_back({line.number, line.continued, line.goes_on, line.fate,
                                      line.key, line.value, line.written, line.dropped,
                                      line.is_reference});
  }
}

std::set<std::string> conf_recorder::references() const {
  std::set<std::string> found;
  for (const recorded_reading& reading : readings_) {
    for (const recorded_line& line : reading.lines) {
      if (line.is_reference && line.fate != conf_fate::no_reference) {
        found.insert(line.written);
      }
    }
  }
  return found;
}

std::vector<recorded_line> conf_survey(const char* directory, const char* file_name) {
  const conf_recorder recorder(conf_recorder::scope::all_lines);
  const conf_callback nothing = [](const char*, const char*) { return int32_t{0}; };
  // The caller has looked whether the file can be opened.
  (void)load_conf_helper(directory, file_name, "", nothing, nullptr, nullptr, 0);
  return recorder.readings().front().lines;
}
