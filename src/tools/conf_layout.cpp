#include "tools/conf_layout.h"

#include <algorithm>

namespace {

std::string repeated(const std::string& name, int first) {
  return "section [" + name + "] again: only the one in line " + std::to_string(first) + " is read";
}

}  // namespace

const recorded_line* conf_layout::header(const std::string& name) const {
  const auto found = std::ranges::find_if(lines_, [&](const recorded_line& line) {
    return line.fate == conf_fate::header && line.key == name;
  });
  return found == lines_.end() ? nullptr : &*found;
}

const recorded_line* conf_layout::header_beginning(const std::string& beginning) const {
  const auto found = std::ranges::find_if(lines_, [&](const recorded_line& line) {
    return line.fate == conf_fate::header && line.key.starts_with(beginning);
  });
  return found == lines_.end() ? nullptr : &*found;
}

void conf_layout::check_headers(conf_findings& findings) const {
  bool any_header = false;
  for (const recorded_line& line : lines_) {
    any_header |= line.fate == conf_fate::header;
    if (line.continued) {
      continue;
    }
    if (line.fate == conf_fate::broken_header) {
      findings.add(line.number, "no \"]\": ignored, the section above goes on");
    } else if (line.fate == conf_fate::outside && !any_header) {
      findings.add(line.number, "before the first section: ignored");
    } else if (line.fate == conf_fate::header && line.key.empty()) {
      findings.add(line.number, "a section without a name is not read");
    } else if (line.fate == conf_fate::header && header(line.key) != &line) {
      findings.add(line.number, repeated(line.key, header(line.key)->number));
    }
  }
}

void conf_layout::check_long_lines(conf_findings& findings) const {
  for (std::size_t i = 0; i + 1 < lines_.size(); ++i) {
    if (lines_[i].goes_on && !lines_[i].continued && lines_[i + 1].fate != conf_fate::blank) {
      findings.add(lines_[i].number,
                   "longer than 253 characters: what follows them is read as a line of its own");
    }
  }
}

void conf_layout::check_unread(int stop, conf_findings& findings) const {
  for (const recorded_line& line : lines_) {
    if (stop == 0 || line.number <= stop || line.continued) {
      continue;
    }
    if (line.fate == conf_fate::header) {
      return;
    }
    if (line.fate == conf_fate::outside) {
      findings.add(line.number,
                   "not read: the section ends for the daemon in line " + std::to_string(stop));
    }
  }
}
