#include "tools/conf_layout.h"

#include <algorithm>

namespace {

std::string repeated(const std::string& name, int first) {
  return "section [" + name + "] again: only the one in line " + std::to_string(first) + " is read";
}

bool is_header(const recorded_line& line) {
  return line.kind == conf_kind::header;
}

}  // namespace

const recorded_line* conf_layout::header(const std::string& name) const {
  const auto found = std::ranges::find_if(
      lines_, [&](const recorded_line& line) { return is_header(line) && line.key == name; });
  return found == lines_.end() ? nullptr : &*found;
}

const recorded_line* conf_layout::header_beginning(const std::string& beginning) const {
  const auto found = std::ranges::find_if(lines_, [&](const recorded_line& line) {
    return is_header(line) && line.key.starts_with(beginning);
  });
  return found == lines_.end() ? nullptr : &*found;
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
      findings.add(line.number, repeated(line.key, header(line.key)->number));
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

void conf_layout::check_unread(int stop, conf_findings& findings) const {
  for (const recorded_line& line : lines_) {
    if (stop == 0 || line.number <= stop || line.continued) {
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
