/// Splitting of rows: a byte for the number of fields, a byte for the separator, then the row.

#include <algorithm>
#include <vector>

#include "base/qvn_text.h"
#include "db/qvn_row_split.h"
#include "support.h"

namespace {

constexpr std::size_t kMostFields = 20;

using text_list = std::vector<std::string>;

/// The row cut at every separator until there are `most` fields; the rest stays with the last one.
text_list cut_at(std::string_view row, char separator, std::size_t most) {
  text_list fields;
  std::size_t end = 0;
  while (fields.size() + 1 < most && (end = row.find(separator)) != std::string_view::npos) {
    fields.emplace_back(row.substr(0, end));
    row.remove_prefix(end + 1);
  }
  fields.emplace_back(row);
  return fields;
}

text_list plain_model(std::string_view row, char separator, std::size_t most, bool keeps_rest) {
  text_list fields = cut_at(row, separator, most);
  if (fields.size() == most) {
    std::string& last = fields.back();
    last.resize(std::min(last.find('\n'), last.size()));
    if (!keeps_rest) {
      last.resize(std::min(last.find(separator), last.size()));
    }
  }
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

/// The fields that were reached are the model's, the others what they were.
template <class Field>
void check_fields(const std::vector<Field>& fields, const text_list& expected,
                  const char* untouched) {
  FUZZ_CHECK(expected.size() <= fields.size());
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const std::string_view field = fields[i];
    if (i < expected.size()) {
      FUZZ_CHECK(field == expected[i] && field.data()[field.size()] == '\0');
    } else {
      FUZZ_CHECK(field.data() == untouched);
    }
  }
}

template <class Field, class Split>
void check_split(std::string_view row, std::size_t most, const text_list& expected, Split split) {
  char untouched[] = "untouched";
  std::vector<Field> fields(most, untouched);
  const auto copy = fuzz_copy(row);
  split(copy.get(), std::span<Field>(fields));
  check_fields(fields, expected, untouched);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz_input input(data, size);
  const std::size_t most = 1 + input.byte() % kMostFields;
  const char separator = static_cast<char>(std::max(input.byte(), uint8_t{1}));
  const std::string_view row = fuzz_before_nul(input.rest());

  const text_list plain = plain_model(row, separator, most, false);
  check_split<char*>(row, most, plain, [&](char* line, std::span<char*> fields) {
    FUZZ_CHECK(qvn_row_parse_to_array(line, fields, separator) + 1 ==
               static_cast<int32_t>(plain.size()));
  });
  const text_list with_rest = plain_model(row, separator, most, true);
  check_split<char*>(row, most, with_rest, [&](char* line, std::span<char*> fields) {
    FUZZ_CHECK(qvn_row_parse_to_array_vstr(line, fields, separator) + 1 ==
               static_cast<int32_t>(with_rest.size()));
  });
  if (most >= 2) {
    const text_list copied = copy_row_model(row, most);
    const auto split = [](char* line, auto fields) { pg_row_csv_parse(line, fields); };
    check_split<char*>(row, most, copied, split);
    check_split<std::string_view>(row, most, copied, split);
  }
  return 0;
}
