/// Splitting of rows: a byte for the number of fields, a byte for the separator, then the row.

#include <algorithm>
#include <vector>

#include "base/qvn_text.h"
#include "db/qvn_row_split.h"
#include "support.h"

namespace {

constexpr std::size_t kMostFields = 20;

using text_list = std::vector<std::string>;

/// The row cut at every separator until there are `most` fields; the last one ends at a line feed,
/// and at a further separator where it does not keep the rest.
text_list plain_model(std::string_view row, char separator, std::size_t most, bool keeps_rest) {
  text_list fields;
  std::size_t end = 0;
  while (fields.size() + 1 < most && (end = row.find(separator)) != std::string_view::npos) {
    fields.emplace_back(row.substr(0, end));
    row.remove_prefix(end + 1);
  }
  if (fields.size() + 1 == most) {
    row = row.substr(0, row.find('\n'));
    row = keeps_rest ? row : row.substr(0, row.find(separator));
  }
  fields.emplace_back(row);
  return fields;
}

text_list copy_row_model(std::string_view row, std::size_t most) {
  text_list fields = plain_model(row, ',', most, true);
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (fields[i] == "\"\"" && (i + 1 < fields.size() || fields.size() == most)) {
      fields[i].clear();
    }
  }
  return fields;
}

/// The fields that are reached become the model's, the others stay what they were.
template <class Field, class Split>
void check_split(std::string_view row, std::size_t most, const text_list& expected, Split split) {
  char untouched[] = "untouched";
  std::vector<Field> fields(most, untouched);
  const auto copy = fuzz_copy(row);
  split(copy.get(), std::span<Field>(fields));
  FUZZ_CHECK(expected.size() <= most);
  for (std::size_t i = 0; i < most; ++i) {
    const std::string_view field = fields[i];
    FUZZ_CHECK(i < expected.size() ? field == expected[i] && field.data()[field.size()] == '\0'
                                   : field.data() == untouched);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz_input input(data, size);
  const std::size_t most = 1 + input.byte() % kMostFields;
  const char separator = static_cast<char>(std::max(input.byte(), uint8_t{1}));
  const std::string_view row = fuzz_before_nul(input.rest());

  for (const bool keeps_rest : {false, true}) {
    const text_list plain = plain_model(row, separator, most, keeps_rest);
    const auto parse = keeps_rest ? qvn_row_parse_to_array_vstr : qvn_row_parse_to_array;
    check_split<char*>(row, most, plain, [&](char* line, std::span<char*> fields) {
      FUZZ_CHECK(parse(line, fields, separator) + 1 == static_cast<int32_t>(plain.size()));
    });
  }
  if (most >= 2) {
    const text_list copied = copy_row_model(row, most);
    const auto split = [](char* line, auto fields) { pg_row_csv_parse(line, fields); };
    check_split<char*>(row, most, copied, split);
    check_split<std::string_view>(row, most, copied, split);
  }
  return 0;
}
