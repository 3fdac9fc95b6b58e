/// Reads what a page in markdown holds for a test: fenced blocks and tables, by section.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace support {

/// A fenced block: what stands after its fence, such as "sql" or "csv deck.csv", and its lines.
struct Block {
  std::string kind;
  std::string text;
};

/// A row of a table: cells by the heading of their column.
using TableRow = std::map<std::string, std::string>;

struct Table {
  std::vector<std::string> headings;
  std::vector<TableRow> rows;
};

/// What stands below a heading of the second level, or before the first one.
struct Section {
  std::string heading;
  std::vector<Block> blocks;
  std::vector<Table> tables;
};

std::vector<Section> sections(const std::string& page);

/// All blocks of a page.
std::vector<Block> blocks(const std::string& page);

/// The cells of a table's line, without blanks and backticks around them; "<br>" is a new line.
std::vector<std::string> cells(const std::string& line);

void replace_all(std::string& text, const std::string& from, const std::string& to);

}  // namespace support
