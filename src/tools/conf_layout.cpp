#include "tools/conf_layout.h"

#include <algorithm>
#include <span>

#include "core/qvn_core_ctrl.h"

namespace {

bool is_header(const recorded_line& line) {
  return line.kind == conf_kind::header;
}

/// The first header whose name is as asked for, or null.
template <class IsWanted>
const recorded_line* find_header(std::span<const recorded_line> lines, IsWanted is_wanted) {
  const auto found = std::ranges::find_if(
      lines, [&](const recorded_line& line) { return is_header(line) && is_wanted(line.key); });
  return found == lines.end() ? nullptr : &*found;
}

}  // namespace

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

conf_layout::conf_layout(const char* file_name) : file_name_(file_name) {
  conf_reader reader(g_core_ctrl->conf_dir.c_str(), file_name);
  for (conf_line line; reader.is_open() && reader.next(line);) {
    lines_.push_back(
        {line.number, line.continued, line.goes_on, line.kind, line.key, line.value, line.dropped});
  }
}

void conf_layout::hand_over(recorded_line& line, conf_callback handler) const {
  const char* const directory = g_core_ctrl->conf_dir.c_str();
  line.is_reference = qvn_conf_is_reference(line.written.c_str());
  line.value = qvn_conf_resolve(directory, file_name_, line.written.c_str()).data();
  if (line.value.empty()) {
    line.fate = conf_fate::no_reference;
  } else {
    const bool stops = handler(line.key.c_str(), line.value.c_str()) != 0;
    line.fate = stops ? conf_fate::stopped : conf_fate::taken;
  }
}

recorded_reading conf_layout::read(const std::string& section, conf_callback handler) const {
  recorded_reading reading{section, {}};
  const recorded_line* line = header(section);
  const recorded_line* const end = lines_.data() + lines_.size();
  for (bool goes_on = line != nullptr; goes_on && ++line != end && !is_header(*line);) {
    if (line->is_content()) {
      recorded_line& own = reading.lines.emplace_back(*line);
      if (own.kind == conf_kind::pair) {
        hand_over(own, handler);
      }
      goes_on = own.fate != conf_fate::stopped;
    }
  }
  return reading;
}

const recorded_line* conf_layout::header(const std::string& name) const {
  return find_header(lines_, [&](const std::string& key) { return key == name; });
}

const recorded_line* conf_layout::header_beginning(const std::string& beginning) const {
  return find_header(lines_, [&](const std::string& key) { return key.starts_with(beginning); });
}

void conf_layout::check_headers(conf_findings& findings) const {
  bool any_header = false;
  for (const recorded_line& line : lines_) {
    any_header |= is_header(line);
    if (line.continued) {
      continue;
    }
    if (line.kind == conf_kind::broken_header) {
      findings.add(line.number, "no \"]\": ignored, the section above goes on");
    } else if (line.is_content() && !any_header) {
      findings.add(line.number, "before the first section: ignored");
    } else if (is_header(line) && line.key.empty()) {
      findings.add(line.number, "a section without a name is not read");
    } else if (is_header(line) && header(line.key) != &line) {
      findings.add(line.number, "section [" + line.key + "] again: only the one in line " +
                                    std::to_string(header(line.key)->number) + " is read");
    }
  }
}

void conf_layout::check_long_lines(conf_findings& findings) const {
  for (std::size_t i = 0; i + 1 < lines_.size(); ++i) {
    if (lines_[i].goes_on && !lines_[i].continued && lines_[i + 1].kind != conf_kind::blank) {
      findings.add(lines_[i].number,
                   "longer than 253 characters: what follows them is read as a line of its own");
    }
  }
}

void conf_layout::check_unread(const recorded_reading& reading, conf_findings& findings) const {
  if (reading.lines.empty() || reading.lines.back().fate != conf_fate::stopped) {
    return;
  }
  const int stop = reading.lines.back().number;
  for (const recorded_line& line : lines_) {
    if (line.number <= stop || line.continued) {
      continue;
    }
    if (is_header(line)) {
      return;
    }
    if (line.is_content()) {
      findings.add(line.number,
                   "not read: the section ends for the daemon in line " + std::to_string(stop));
    }
  }
}
