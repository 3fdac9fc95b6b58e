#include "rerate/rerate_trunk.h"

#include <cstdlib>

#include "base/qvn_text.h"
#include "rate/qvn_rate_table.h"

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

int64_t number(std::string_view text) {
  return std::strtol(std::string(text).c_str(), nullptr, 10);
}

bool parse_item(std::string_view item, rerate_trunk_list& trunks) {
  std::string_view id;
  std::string_view flag;
  std::string_view rate_table_id;
  if (!take_field(item, ',', id) || !take_field(item, ',', flag) ||
      !take_field(item, ',', rate_table_id) || id.empty() || flag.empty()) {
    return false;
  }
  const std::string_view rate_date = item;
  const auto enabled = static_cast<uint8_t>(number(flag));  // cut to the flag's 8 bits
  if (enabled == 1 && (rate_table_id.empty() || rate_date.empty())) {
    return false;
  }
  rerate_trunk& trunk = trunks.emplace_front();
  trunk.id = qvn_cut(id, kMostIdCharacters);
  trunk.enabled = enabled;
  if (enabled == 1) {
    trunk.rate_table_id = qvn_cut(rate_table_id, kMostIdCharacters);
    trunk.rate_date = number(rate_date);
  }
  return true;
}

}  // namespace

void rerate_trunk::forget_rates() {
  if (!borrowed) {
    (void)rp_hash_destroy(&rate_tree, delete_rate_node);
  }
  rate_tree = nullptr;
  borrowed = false;
  loaded_rate_date = 0;
}

void rerate_trunk::borrow_rates(const rerate_trunk& owner) {
  rate_tree = owner.rate_tree;
  loaded_rate_date = owner.loaded_rate_date;
  borrowed = true;
}

bool rerate_trunk_text_parse(std::string_view text, rerate_trunk_list& trunks) {
  while (!text.empty()) {
    std::string_view item = text;
    if (!take_field(text, ';', item)) {
      text = {};
    }
    if (!parse_item(item, trunks)) {
      return false;
    }
  }
  return true;
}
