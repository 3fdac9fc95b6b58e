#include "rate_upload/deck_header.h"

#include <algorithm>
#include <iterator>
#include <strings.h>

namespace {

/// In the order of column_kind; an empty cell is a column to be ignored.
constexpr std::string_view kNames[] = {
    "",           "zone",      "interval",   "seconds",    "rate_type",      "min_time",
    "grace_time", "code",      "code_name",  "country",    "effective_date", "end_date",
    "rate",       "setup_fee", "intra_rate", "inter_rate", "local_rate",     "ocn",
    "lata",
};

column_kind kind_of(std::string_view cell) {
  const auto* const found = std::ranges::find_if(kNames, [cell](std::string_view name) {
    return name.size() == cell.size() && strncasecmp(name.data(), cell.data(), name.size()) == 0;
  });
  return found == std::end(kNames) ? column_kind::ignored
                                   : static_cast<column_kind>(found - std::begin(kNames));
}

bool is_blank(char c) {
  return static_cast<unsigned char>(c) <= ' ';
}

/// Without leading and trailing blanks.
std::string_view strip(std::string_view cell) {
  while (!cell.empty() && is_blank(cell.front())) {
    cell.remove_prefix(1);
  }
  while (!cell.empty() && is_blank(cell.back())) {
    cell.remove_suffix(1);
  }
  return cell;
}

}  // namespace

bool rate_header::valid() const {
  const std::span<const column_kind> present(kinds.data(), count);
  return std::ranges::count(present, column_kind::code) > 0 &&
         std::ranges::count(present, column_kind::effective_date) > 0;
}

rate_header rate_header_parse(std::string_view line) {
  std::array<std::string_view, kMaxCells> entries;
  const std::span<const std::string_view> cells = rate_line_split(line, entries);
  rate_header header;
  header.count = cells.size();
  for (std::size_t i = 0; i < cells.size(); ++i) {
    header.kinds[i] = kind_of(cells[i]);
    if (header.kinds[i] == column_kind::code) {
      header.code_column = i;
    }
  }
  return header;
}

std::span<const std::string_view> rate_line_split(std::string_view line,
                                                  std::span<std::string_view, kMaxCells> cells) {
  std::size_t count = 0;
  for (;;) {
    const std::size_t end = line.find(kCellSeparator);
    cells[count++] = strip(line.substr(0, end));
    if (end == std::string_view::npos || count == cells.size()) {
      return cells.first(count);
    }
    line.remove_prefix(end + 1);
  }
}
