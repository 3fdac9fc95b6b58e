#include "base/qvn_conf_file.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/qvn_text.h"

namespace {

constexpr int kLineReadSize = 254;

/// Between the section and the key of a reference.
constexpr const char* kReferenceMark = ".$";

void hand_over(conf_reader& reader, const char* directory, const char* file_name,
               conf_callback callback) {
  for (conf_line line; reader.next_pair(line);) {
    const conf_buffer value = qvn_conf_resolve(directory, file_name, line.value);
    if (value[0] != '\0' && callback(line.key, value.data()) != 0) {
      return;
    }
  }
}

void look_up(conf_reader& reader, const char* key, char* output, std::size_t output_length) {
  for (conf_line line; reader.next_pair(line);) {
    if (std::strcmp(line.key, key) == 0) {
      std::memcpy(output, line.value, std::min(std::strlen(line.value) + 1, output_length));
      return;
    }
  }
}

}  // namespace

conf_reader::conf_reader(const char* directory, const char* file_name) {
  (void)std::snprintf(path_.data(), path_.size(), "%s%s", directory, file_name);
  file_.reset(std::fopen(path_.data(), "re"));
}

bool conf_reader::next(conf_line& line) {
  if (!std::fgets(buffer_.data(), kLineReadSize, file_.get())) {
    return false;
  }
  const std::size_t length = std::strlen(buffer_.data());
  line = {};
  line.continued = goes_on_;
  line.number = number_ += goes_on_ ? 0 : 1;
  line.goes_on = goes_on_ = length == kLineReadSize - 1 && buffer_[length - 1] != '\n';
  char* const text = qvn_strip_prefix_blank(buffer_.data());
  if (buffer_[0] == '#' || buffer_[0] == ';') {
    line.kind = conf_kind::comment;
  } else if (*text == '[') {
    read_header(text, line);
  } else if (*text != '\0' && *text != '\n') {
    read_pair(text, line);
  }
  return true;
}

/// Cuts the name out of the line.
void conf_reader::read_header(char* text, conf_line& line) {
  char* const name = qvn_strip_prefix_blank(text + 1);
  char* const end = std::strchr(name, ']');
  line.kind = end ? conf_kind::header : conf_kind::broken_header;
  if (end) {
    *end = '\0';
    qvn_strip_suffix_blank(end - 1);
    line.key = name;
  }
}

/// Cuts key and value out of the line.
void conf_reader::read_pair(char* text, conf_line& line) {
  line.kind = conf_kind::no_pair;
  char* const equals = std::strchr(text, '=');
  if (!equals || equals == text) {
    return;
  }
  *equals = '\0';
  qvn_strip_suffix_blank(equals - 1);
  char* const value = qvn_strip_prefix_blank(equals + 1);
  char* const end = value + std::strcspn(value, "\r\n #;");
  std::memcpy(dropped_.data(), end, std::strlen(end) + 1);
  *end = '\0';
  line.key = text;
  line.value = value;
  line.dropped = dropped_.data();
  if (*text != '\0') {
    line.kind = *value == '\0' ? conf_kind::no_value : conf_kind::pair;
  }
}

bool conf_reader::find_section(const char* name) {
  for (conf_line line; next(line);) {
    if (line.kind == conf_kind::header && *line.key != '\0' && std::strcmp(line.key, name) == 0) {
      return true;
    }
  }
  return false;
}

bool conf_reader::next_pair(conf_line& line) {
  while (next(line) && line.kind != conf_kind::header) {
    if (line.kind == conf_kind::pair) {
      return true;
    }
  }
  return false;
}

bool qvn_conf_is_reference(const char* value) {
  return std::strstr(value, kReferenceMark) != nullptr;
}

conf_buffer qvn_conf_resolve(const char* directory, const char* file_name, const char* value) {
  conf_buffer found{};
  const char* const mark = std::strstr(value, kReferenceMark);
  if (!mark) {
    std::memcpy(found.data(), value, std::strlen(value));
    return found;
  }
  const char* const key = mark + std::strlen(kReferenceMark);
  conf_buffer section{};
  std::memcpy(section.data(), value, static_cast<std::size_t>(mark - value));
  // Without a key there is nothing to look up, and a file that is gone by now has no key.
  (void)load_conf_helper(directory, file_name, section.data(), nullptr, key, found.data(),
                         found.size() - 1);
  return found;
}

int32_t load_conf_helper(const char* directory, const char* file_name, const char* section,
                         conf_callback callback, const char* lookup_key, char* output,
                         std::size_t output_length) {
  conf_reader reader(qvn_or_empty(directory), qvn_or_empty(file_name));
  if (!reader.is_open()) {
    return -1;
  }
  if (!reader.find_section(qvn_or_empty(section))) {
    return 0;
  }
  if (zstr(lookup_key)) {
    if (callback) {
      hand_over(reader, qvn_or_empty(directory), qvn_or_empty(file_name), callback);
    }
  } else if (output) {
    look_up(reader, lookup_key, output, output_length);
  }
  return 0;
}
