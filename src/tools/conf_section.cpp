#include "tools/conf_section.h"

#include <cstdlib>
#include <map>

#include "base/qvn_text.h"

namespace {

/// The word that a key begins with: what follows it on a mistyped line could be a password.
std::string key_word(const std::string& key) {
  constexpr const char* kWord = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";
  const std::string word = key.substr(0, key.find_first_not_of(kWord));
  return word.empty() ? "?" : word;
}

/// Where the text begins that a line has after its value, or npos.
std::size_t text_after(const std::string& dropped) {
  return dropped.find_first_not_of(" \t\r\n");
}

/// Whether nothing follows a value but a note, which a blank keeps apart from it.
bool is_note(const std::string& dropped) {
  const std::size_t start = text_after(dropped);
  return start == std::string::npos ||
         (start > 0 && (dropped[start] == '#' || dropped[start] == ';'));
}

/// Whether a part of what was meant is lost; after a password a note is not expected.
bool is_cut(const recorded_line& line, const qvn_setting& setting) {
  // A tab keeps a note apart as well, though it stays part of the value.
  const std::string after = (line.written.ends_with('\t') ? "\t" : "") + line.dropped;
  return !is_note(after) || (setting.secret && text_after(after) != std::string::npos);
}

std::string sign_name(char sign) {
  switch (sign) {
    case ' ':
      return "a blank";
    case '\r':
      return "a carriage return";
    default:
      return std::string("\"") + sign + "\"";
  }
}

/// Reports on one section, line by line.
struct section_check {
  const recorded_reading& reading;
  const conf_known& known;
  conf_findings& findings;
  std::map<const qvn_setting*, int> lines_by_setting{};

  void check(const recorded_line& line) {
    // What follows a piece of a long line is reported with it, and may be the rest of a password.
    if (line.continued) {
      return;
    }
    if (line.kind == conf_kind::no_pair) {
      findings.add(line.number, "no \"key=value\": ignored");
    } else if (line.kind == conf_kind::no_value) {
      add(line, "no value" +
                    (is_note(line.dropped) ? std::string()
                                           : " in front of " + sign_name(line.dropped.front())) +
                    ": ignored");
    } else if (line.kind == conf_kind::pair) {
      check_pair(line);
    }
  }

  void check_pair(const recorded_line& line) {
    const qvn_setting* const setting = qvn_setting_find(known.settings, line.key.c_str());
    if (!setting) {
      report_unknown(line);
      return;
    }
    if (is_cut(line, *setting)) {
      add(line, "the value is cut at " + sign_name(line.dropped.front()));
    }
    if (line.is_reference) {
      report_reference(line, setting);
    }
    if (line.fate == conf_fate::taken || line.fate == conf_fate::stopped) {
      check_repetition(line, *setting);
      if (setting->number) {
        check_number(line, *setting->number);
      } else {
        check_text(line, *setting);
      }
    }
  }

  void report_unknown(const recorded_line& line) {
    if (known.references.contains(reading.section + ".$" + line.key)) {
      return;
    }
    for (const qvn_conf_section& section : known.sections) {
      if (qvn_setting_find(section.settings, line.key.c_str())) {
        add(line, "ignored here: it belongs in section [" + std::string(section.name) + "]");
        return;
      }
    }
    add(line, "unknown key, ignored");
  }

  void report_reference(const recorded_line& line, const qvn_setting* setting) {
    const std::string leads =
        line.fate == conf_fate::no_reference ? ", which leads nowhere: the line is ignored" : "";
    const std::string target = setting->secret ? "" : " " + line.written;
    add(line, "\".$\" makes the value a reference" + target + leads);
  }

  void check_repetition(const recorded_line& line, const qvn_setting& setting) {
    int& earlier = lines_by_setting[&setting];
    if (earlier != 0) {
      add(line, "given again: this one counts, not that of line " + std::to_string(earlier));
    }
    earlier = line.number;
  }

  void check_text(const recorded_line& line, const qvn_setting& setting) {
    if (setting.most_characters > 0 && line.value.size() > setting.most_characters) {
      add(line,
          "the value is cut after " + std::to_string(setting.most_characters) + " characters");
    }
    if (line.value.find('\t') != std::string::npos) {
      add(line, "a tab is part of the value");
    }
  }

  void check_number(const recorded_line& line, const qvn_number_setting& number) {
    char* rest = nullptr;
    const long written = std::strtol(line.value.c_str(), &rest, 10);
    const uint32_t stored = qvn_setting_stored(number, line.value.c_str());
    const std::string used = std::to_string(stored / number.factor);
    if (!is_note(rest)) {
      add(line, "\"" + line.written + "\" is not a number: taken as " + used);
    } else if (written != static_cast<long>(stored / number.factor)) {
      add(line, std::to_string(written) + " does not fit: taken as " + used);
    }
    if (stored >= number.lowest && stored <= number.highest) {
      return;
    }
    const bool unset = number.zero_is_unset && stored == 0;
    add(line, used + " is not in " + std::to_string(number.lowest / number.factor) + " to " +
                  std::to_string(number.highest / number.factor) +
                  (unset ? " and leaves the default" : " and is used all the same") +
                  (line.fate == conf_fate::stopped
                       ? "; the rest of section [" + reading.section + "] is not read"
                       : ""));
  }

  void add(const recorded_line& line, const std::string& text) {
    findings.add(line.number, key_word(line.key) + ": " + text);
  }
};

}  // namespace

void conf_check_section(const recorded_reading& reading, const conf_known& known,
                        conf_findings& findings) {
  section_check check{reading, known, findings};
  for (const recorded_line& line : reading.lines) {
    check.check(line);
  }
}
