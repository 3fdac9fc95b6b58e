#include "tools/code_deck_csv.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>
#include <strings.h>
#include <vector>

#include "base/qvn_file.h"
#include "base/qvn_text.h"
#include "db/qvn_pg_rows.h"
#include "db/qvn_row_split.h"

namespace {

/// The names of the columns in the order of code_deck_column.
constexpr const char* kNames[kDeckColumns] = {"code_id", "code", "code_deck_id", "country", "name"};

/// Reads rows, without their line ends.
struct csv_reader {
  const char* path;
  std::FILE* file;
  int number = 0;  ///< of the line that was read last

  /// The next row that is not empty; false at the end.
  bool next(std::string& row) {
    while (read_line(row)) {
      ++number;
      row.resize(std::min(row.find_first_of("\r\n"), row.size()));
      if (!row.empty()) {
        return true;
      }
    }
    return false;
  }

  bool complain(const char* what) const {
    (void)std::fprintf(stderr, "%s:%d: %s\n", path, number, what);
    return false;
  }

  bool read_line(std::string& line) {
    char piece[4096];
    line.clear();
    while (std::fgets(piece, sizeof piece, file)) {
      line += piece;
      if (line.ends_with('\n')) {
        return true;
      }
    }
    return !line.empty();
  }
};

/// What the file's columns hold; kDeckColumns: nothing of interest.
using column_list = std::vector<std::size_t>;

std::size_t kind_of(const char* name) {
  const auto same = [name](const char* known) { return strcasecmp(known, name) == 0; };
  return static_cast<std::size_t>(std::ranges::find_if(kNames, same) - std::begin(kNames));
}

bool has(const column_list& columns, code_deck_column kind) {
  return std::ranges::find(columns, kind) != columns.end();
}

std::size_t commas_of(const std::string& row) {
  return static_cast<std::size_t>(std::ranges::count(row, ','));
}

bool read_header(csv_reader& reader, column_list& columns) {
  std::string row;
  if (!reader.next(row)) {
    return reader.complain("no header");
  }
  std::vector<char*> names(std::min(commas_of(row) + 1, kMaxCopyColumns));
  names.resize(static_cast<std::size_t>(qvn_row_parse_to_array(row.data(), names, ',')) + 1);
  for (char* const name : names) {
    columns.push_back(kind_of(qvn_trim_suffix_blank(qvn_skip_blanks(name))));
  }
  return (has(columns, kDeckCode) && has(columns, kDeckName)) ||
         reader.complain("the header must name the columns code and name");
}

bool add_row(const column_list& columns, std::string& row, char* default_id, code_decks& deck) {
  char nothing[] = "";
  std::vector<char*> fields(columns.size(), nothing);
  row += '\n';  // where the last field of a row of the database ends
  pg_row_csv_parse(row.data(), fields);
  std::array<char*, kDeckColumns + 1> values;
  values.fill(nothing);
  values[kDeckId] = default_id;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    values[columns[i]] = fields[i];
  }
  return deck.add(std::span(values).first(kDeckColumns));
}

}  // namespace

bool code_deck_csv_load(const char* path, std::string default_id, code_decks& deck) {
  const qvn_file file(std::fopen(path, "re"));
  if (!file) {
    (void)std::fprintf(stderr, "%s: %s\n", path, std::strerror(errno));
    return false;
  }
  csv_reader reader{path, file.get()};
  column_list columns;
  if (!read_header(reader, columns)) {
    return false;
  }
  for (std::string row; reader.next(row);) {
    if (commas_of(row) + 1 < columns.size()) {
      return reader.complain("fewer columns than the header");
    }
    if (!add_row(columns, row, default_id.data(), deck)) {
      throw std::bad_alloc();
    }
  }
  return std::ferror(file.get()) == 0 || reader.complain(std::strerror(errno));
}
