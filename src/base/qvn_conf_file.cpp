#include "base/qvn_conf_file.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "base/qvn_file.h"
#include "base/qvn_text.h"

namespace {

/// Buffers of paths, lines and referenced values. A longer line is read in pieces of 253
/// characters.
constexpr std::size_t kBufferSize = 256;
constexpr int kLineReadSize = 254;

using conf_buffer = std::array<char, kBufferSize>;

/// What the caller asked for.
struct conf_request {
  const char* directory;
  const char* file_name;
  const char* section;
  conf_callback callback;  ///< not used in a lookup
  const char* lookup_key;  ///< empty: no lookup
  char* output;
  std::size_t output_length;
};

/// Cuts a header's name out of the line; none when it has no "]".
const char* section_name(char* line) {
  char* name = qvn_strip_prefix_blank(line + 1);
  char* end = std::strchr(name, ']');
  if (end == nullptr) {
    return nullptr;
  }
  *end = '\0';
  qvn_strip_suffix_blank(end - 1);
  return name;
}

/// Cuts key and value out of the line; false when it is no pair or one of them is empty.
bool split_pair(char* line, const char*& key, const char*& value) {
  char* equals = std::strchr(line, '=');
  if (equals == nullptr || equals == line) {
    return false;
  }
  *equals = '\0';
  qvn_strip_suffix_blank(equals - 1);
  char* start = qvn_strip_prefix_blank(equals + 1);
  start[std::strcspn(start, "\r\n #;")] = '\0';
  key = line;
  value = start;
  return *key != '\0' && *value != '\0';
}

/// Replaces a value "section.$key" by the value that stands there; false when there is none. What
/// is found is not resolved again.
bool resolve_reference(const conf_request& request, const char*& value, conf_buffer& found) {
  constexpr const char* kMark = ".$";
  const char* mark = std::strstr(value, kMark);
  if (mark == nullptr) {
    return true;
  }
  const char* key = mark + std::strlen(kMark);
  if (mark == value || *key == '\0') {
    return false;
  }
  conf_buffer section{};
  std::memcpy(section.data(), value, static_cast<std::size_t>(mark - value));
  // A file that is gone by now is the same as a key that is not there.
  (void)load_conf_helper(request.directory, request.file_name, section.data(), nullptr, key,
                         found.data(), found.size() - 1);
  value = found.data();
  return *value != '\0';
}

void copy_to_output(const conf_request& request, const char* value) {
  const std::size_t size = std::strlen(value) + 1;
  std::memcpy(request.output, value, size < request.output_length ? size : request.output_length);
}

/// Handles a line of the wanted section; false to stop the reading.
bool take_pair(const conf_request& request, char* line) {
  const char* key = nullptr;
  const char* value = nullptr;
  if (!split_pair(line, key, value)) {
    return true;
  }
  if (*request.lookup_key != '\0') {
    if (std::strcmp(key, request.lookup_key) != 0) {
      return true;
    }
    copy_to_output(request, value);
    return false;
  }
  conf_buffer found{};
  if (!resolve_reference(request, value, found)) {
    return true;
  }
  return request.callback(key, value) == 0;
}

void read_section(const conf_request& request, std::FILE* file) {
  bool entered = false;
  for (conf_buffer buffer{}; std::fgets(buffer.data(), kLineReadSize, file) != nullptr;) {
    if (buffer[0] == '#' || buffer[0] == ';') {
      continue;
    }
    char* line = qvn_strip_prefix_blank(buffer.data());
    if (*line == '[') {
      const char* name = section_name(line);
      if (name == nullptr) {
        continue;
      }
      if (entered) {
        return;
      }
      entered = *name != '\0' && std::strcmp(name, request.section) == 0;
    } else if (entered && !take_pair(request, line)) {
      return;
    }
  }
}

}  // namespace

int32_t load_conf_helper(const char* directory, const char* file_name, const char* section,
                         conf_callback callback, const char* lookup_key, char* output,
                         std::size_t output_length) {
  const conf_request request{qvn_or_empty(directory),
                             qvn_or_empty(file_name),
                             qvn_or_empty(section),
                             callback,
                             qvn_or_empty(lookup_key),
                             output,
                             output_length};
  conf_buffer path{};
  std::snprintf(path.data(), path.size(), "%s%s", request.directory, request.file_name);
  const qvn_file file(std::fopen(path.data(), "re"));
  if (!file) {
    return -1;
  }
  const bool is_lookup = *request.lookup_key != '\0';
  if (is_lookup ? request.output != nullptr : request.callback != nullptr) {
    read_section(request, file.get());
  }
  return 0;
}
