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

conf_observer* g_observer = nullptr;

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

bool is_lookup(const conf_request& request) {
  return *request.lookup_key != '\0';
}

void tell(const conf_request& request, const conf_line& seen) {
  if (g_observer && !is_lookup(request)) {
    g_observer->reads(seen);
  }
}

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

/// What stands behind the values of lines. An observer gets it whole, so the character that ends a
/// value is not lost when the value is cut there.
class dropped_text {
 public:
  /// Cuts the value at its end.
  const char* cut(char* value) {
    char* const end = value + std::strcspn(value, "\r\n #;");
    std::memcpy(text_.data(), end, std::strlen(end) + 1);
    *end = '\0';
    return text_.data();
  }

 private:
  conf_buffer text_;
};

/// Cuts key and value out of the line; false when it is no pair or one of them is empty.
bool split_pair(char* line, dropped_text& dropped, conf_line& seen) {
  char* equals = std::strchr(line, '=');
  if (equals == nullptr || equals == line) {
    return false;
  }
  *equals = '\0';
  qvn_strip_suffix_blank(equals - 1);
  char* start = qvn_strip_prefix_blank(equals + 1);
  seen.dropped = dropped.cut(start);
  seen.key = line;
  seen.value = seen.written = start;
  seen.fate = *seen.key == '\0' ? conf_fate::no_pair : conf_fate::no_value;
  return *seen.key != '\0' && *seen.value != '\0';
}

/// Replaces a value "section.$key" by the value that stands there; false when there is none. What
/// is found is not resolved again.
bool resolve_reference(const conf_request& request, conf_line& seen, conf_buffer& found) {
  constexpr const char* kMark = ".$";
  const char*& value = seen.value;
  const char* mark = std::strstr(value, kMark);
  if (mark == nullptr) {
    return true;
  }
  seen.is_reference = true;
  seen.fate = conf_fate::no_reference;
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

/// Handles a line of the wanted section, and tells about it while its texts are there; false to
/// stop the reading.
bool take_pair(const conf_request& request, char* line, conf_line& seen) {
  dropped_text dropped;
  conf_buffer found{};
  seen.fate = conf_fate::no_pair;
  if (!split_pair(line, dropped, seen)) {
    tell(request, seen);
    return true;
  }
  if (is_lookup(request)) {
    if (std::strcmp(seen.key, request.lookup_key) != 0) {
      return true;
    }
    copy_to_output(request, seen.value);
    return false;
  }
  if (resolve_reference(request, seen, found)) {
    seen.fate = request.callback(seen.key, seen.value) == 0 ? conf_fate::taken : conf_fate::stopped;
  }
  tell(request, seen);
  return seen.fate != conf_fate::stopped;
}

/// The next piece of the file: which line it belongs to.
conf_line next_piece(const conf_line& last, const conf_buffer& buffer) {
  const std::size_t length = std::strlen(buffer.data());
  conf_line seen;
  seen.continued = last.goes_on;
  seen.number = last.goes_on ? last.number : last.number + 1;
  seen.goes_on = length == kLineReadSize - 1 && buffer[length - 1] != '\n';
  return seen;
}

/// Sees to a header; false when it ends the reading.
bool take_header(const conf_request& request, char* line, bool& entered, conf_line& seen) {
  const char* name = section_name(line);
  seen.fate = name == nullptr ? conf_fate::broken_header : conf_fate::header;
  seen.key = qvn_or_empty(name);
  tell(request, seen);
  if (name == nullptr) {
    return true;
  }
  if (entered) {
    return false;
  }
  entered = *name != '\0' && std::strcmp(name, request.section) == 0;
  return true;
}

/// Sees to a piece; false when it ends the reading.
bool take_piece(const conf_request& request, char* piece, bool& entered, conf_line& seen) {
  if (*piece == '#' || *piece == ';') {
    tell(request, seen);
    return true;
  }
  char* line = qvn_strip_prefix_blank(piece);
  if (*line == '[') {
    return take_header(request, line, entered, seen);
  }
  const bool is_blank = *line == '\0' || *line == '\n';
  if (entered && !is_blank) {
    return take_pair(request, line, seen);
  }
  seen.fate = is_blank ? conf_fate::blank : conf_fate::outside;
  tell(request, seen);
  return true;
}

void read_section(const conf_request& request, std::FILE* file) {
  bool entered = false;
  conf_line seen;
  for (conf_buffer buffer{}; std::fgets(buffer.data(), kLineReadSize, file) != nullptr;) {
    seen = next_piece(seen, buffer);
    if (!take_piece(request, buffer.data(), entered, seen)) {
      return;
    }
  }
}

}  // namespace

void qvn_conf_observe(conf_observer* observer) {
  g_observer = observer;
}

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
  if (g_observer && !is_lookup(request)) {
    g_observer->begins(request.section);
  }
  conf_buffer path{};
  std::snprintf(path.data(), path.size(), "%s%s", request.directory, request.file_name);
  const qvn_file file(std::fopen(path.data(), "re"));
  if (!file) {
    return -1;
  }
  if (is_lookup(request) ? request.output != nullptr : request.callback != nullptr) {
    read_section(request, file.get());
  }
  return 0;
}
