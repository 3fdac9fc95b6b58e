/// The INI reader: a byte for the room of a lookup, a line with the section, a line with the key
/// that is looked up, then the file.

#include <algorithm>
#include <optional>
#include <vector>

#include "base/qvn_conf_file.h"
#include "core/qvn_settings.h"
#include "support.h"

namespace {

using pair_list = std::vector<std::pair<std::string, std::string>>;

pair_list* const g_pairs = new pair_list;

/// A pair with this key ends the section.
constexpr const char* kStopKey = "stop";

int32_t collect(const char* key, const char* value) {
  g_pairs->emplace_back(key, value);
  (void)read_general_config(key, value);
  (void)read_cli_config(key, value);
  return std::strcmp(key, kStopKey) == 0 ? 1 : 0;
}

// --- the model: the same file with texts instead of pointers

std::string without_front(const std::string& text) {
  return text.substr(std::min(text.find_first_not_of("\t \r"), text.size()));
}

std::string without_back(std::string text) {
  text.resize(text.find_last_not_of("\t \r\n") + 1);  // none: 0
  return text;
}

std::vector<std::string> pieces_of(std::string_view file) {
  constexpr std::size_t kPiece = 253;
  std::vector<std::string> pieces;
  while (!file.empty()) {
    const std::size_t feed = file.find('\n');
    const std::size_t size = std::min({feed, kPiece - 1, file.size() - 1}) + 1;
    pieces.emplace_back(fuzz_before_nul(file.substr(0, size)));
    file.remove_prefix(size);
  }
  return pieces;
}

/// The section's pairs as they stand in the file.
pair_list pairs_of(std::string_view file, const std::string& section) {
  pair_list pairs;
  bool entered = false;
  for (const std::string& piece : pieces_of(file)) {
    const std::string line = without_front(piece);
    const std::size_t end = line.find(']');
    const std::size_t equals = line.find('=');
    if (piece.starts_with('#') || piece.starts_with(';')) {
      continue;
    }
    if (line.starts_with('[')) {
      if (end == std::string::npos) {
        continue;
      }
      if (entered) {
        break;
      }
      const std::string name = without_back(without_front(line.substr(1, end - 1)));
      entered = !name.empty() && name == section;
    } else if (entered && equals != std::string::npos && equals != 0) {
      const std::string key = without_back(line.substr(0, equals));
      std::string value = without_front(line.substr(equals + 1));
      value.resize(std::min(value.find_first_of("\r\n #;"), value.size()));
      if (!key.empty() && !value.empty()) {
        pairs.emplace_back(key, value);
      }
    }
  }
  return pairs;
}

std::string value_of(std::string_view file, const std::string& section, const std::string& key) {
  for (const auto& [name, value] : pairs_of(file, section)) {
    if (name == key) {
      return value;
    }
  }
  return "";
}

/// The pairs that a handler is given: references replaced, those that lead nowhere left out.
pair_list resolved_pairs(std::string_view file, const std::string& section) {
  pair_list pairs;
  for (auto [key, value] : pairs_of(file, section)) {
    const std::size_t mark = value.find(".$");
    if (mark != std::string::npos) {
      const std::string name = value.substr(mark + 2);
      value = mark == 0 || name.empty() ? "" : value_of(file, value.substr(0, mark), name);
    }
    if (!value.empty()) {
      pairs.emplace_back(key, value);
    }
    if (!value.empty() && key == kStopKey) {
      break;
    }
  }
  return pairs;
}

void check_lookup(std::string_view file, const std::string& section, const std::string& key,
                  std::size_t room) {
  constexpr char kUntouched = '\x7f';
  const std::unique_ptr<char[]> output(new char[room]);
  std::fill_n(output.get(), room, kUntouched);
  FUZZ_CHECK(load_conf_helper(kFuzzFolder, "", section.c_str(), collect, key.c_str(), output.get(),
                              room) == 0);
  std::string expected = value_of(file, section, key);
  if (!expected.empty()) {
    expected += '\0';
  }
  expected.resize(room, kUntouched);
  FUZZ_CHECK(std::string_view(output.get(), room) == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz_input input(data, size);
  const std::size_t room = input.byte();
  const std::string section = input.line();
  const std::string key = input.line();
  const std::string_view file = input.rest();
  fuzz_set_content(file);
  g_pairs->clear();
  FUZZ_CHECK(load_conf_helper(kFuzzFolder, "", section.c_str(), collect, nullptr, nullptr, 0) == 0);
  FUZZ_CHECK(*g_pairs == resolved_pairs(file, section));
  if (!key.empty()) {
    check_lookup(file, section, key, room);
    FUZZ_CHECK(g_pairs->size() == resolved_pairs(file, section).size());
  }
  return 0;
}
