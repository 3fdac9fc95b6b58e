/// The trunk text of a rerating's job row.

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "base/qvn_text.h"
#include "rerate/rerate_trunk.h"
#include "support.h"

namespace {

struct trunk_model {
  std::string id;
  uint8_t enabled = 0;
  std::string rate_table_id;
  int64_t rate_date = 0;
};

bool read_item(fuzz_input item, trunk_model& trunk) {
  const std::string_view whole = item.rest();
  if (std::count(whole.begin(), whole.end(), ',') < 3) {
    return false;
  }
  const std::string id(item.field(','));
  const std::string flag(item.field(','));
  const std::string table(item.field(','));
  const std::string date(item.rest());
  trunk = {std::string(qvn_cut(id, 63)),
           static_cast<uint8_t>(std::strtol(flag.c_str(), nullptr, 10)), "", 0};
  if (id.empty() || flag.empty() || (trunk.enabled == 1 && (table.empty() || date.empty()))) {
    return false;
  }
  if (trunk.enabled == 1) {
    trunk.rate_table_id = qvn_cut(table, 63);
    trunk.rate_date = std::strtol(date.c_str(), nullptr, 10);
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto bytes = fuzz_copy(text);
  rerate_trunk_list trunks;
  const bool valid = rerate_trunk_text_parse({bytes.get(), size}, call_side::ingress, trunks);

  std::vector<trunk_model> expected;
  bool expected_valid = true;
  for (fuzz_input left(data, size); expected_valid && !left.empty();) {
    const std::string_view item = left.field(';');
    trunk_model trunk;
    expected_valid = read_item({reinterpret_cast<const uint8_t*>(item.data()), item.size()}, trunk);
    if (expected_valid) {
      expected.push_back(trunk);
    }
  }
  FUZZ_CHECK(valid == expected_valid);
  for (const rerate_trunk& trunk : trunks) {
    FUZZ_CHECK(!expected.empty());
    const trunk_model& model = expected.back();
    FUZZ_CHECK(trunk.id == model.id && trunk.enabled == model.enabled);
    FUZZ_CHECK(trunk.rate_table_id == model.rate_table_id && trunk.rate_date == model.rate_date);
    FUZZ_CHECK(!trunk.rates);
    expected.pop_back();
  }
  FUZZ_CHECK(expected.empty());
  return 0;
}
