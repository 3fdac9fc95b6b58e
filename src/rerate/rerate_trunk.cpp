#include "rerate/rerate_trunk.h"

#include "base/qvn_text.h"

namespace {

constexpr std::size_t kMostIdCharacters = 63;

/// Takes the text up to the separator, and both from the front; false when there is no separator.
bool take_field(std::string_view& text, char separator, std::string_view& field) {
  const std::size_t end = text.find(separator);
  if (end == std::string_view::npos) {
    return false;
  }
  field = text.substr(0, end);
  text.remove_prefix(end + 1);
  return true;
}

template <class T>
T number(std::string_view text) {
  return qvn_number<T>(std::string(text).c_str());
}

bool parse_item(std::string_view item, call_side side, rerate_trunk_list& trunks) {
  std::string_view id;
  std::string_view flag;
  std::string_view rate_table_id;
  if (!take_field(item, ',', id) || !take_field(item, ',', flag) ||
      !take_field(item, ',', rate_table_id) || id.empty() || flag.empty()) {
    return false;
  }
  const std::string_view rate_date = item;
  const auto enabled = number<uint8_t>(flag);
  if (enabled == 1 && (rate_table_id.empty() || rate_date.empty())) {
    return false;
  }
  rerate_trunk& trunk = trunks.emplace_front(side);
  trunk.id = qvn_cut(id, kMostIdCharacters);
  trunk.enabled = enabled;
  if (enabled == 1) {
    trunk.rate_table_id = qvn_cut(rate_table_id, kMostIdCharacters);
    trunk.rate_date = number<int64_t>(rate_date);
  }
  return true;
}

}  // namespace

bool rerate_trunk_text_parse(std::string_view text, call_side side, rerate_trunk_list& trunks) {
  rerate_trunk_list read;
  bool valid = true;
  while (valid && !text.empty()) {
    std::string_view item = text;
    if (!take_field(text, ';', item)) {
      text = {};
    }
    valid = parse_item(item, side, read);
  }
  trunks.splice(trunks.end(), read);
  return valid;
}
