#include "support/page.h"

#include <sstream>
#include <utility>

namespace support {
namespace {

/// Reads a page's lines one by one.
class PageReader {
 public:
  std::vector<Section> read(const std::string& page) {
    sections_.emplace_back();
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);)
      take(line);
    return std::move(sections_);
  }

 private:
  void take(const std::string& line) {
    Section& section = sections_.back();
    if (line.starts_with("```")) {
      in_block_ = !in_block_;
      if (in_block_)
        section.blocks.push_back({line.substr(3), ""});
    } else if (in_block_) {
      section.blocks.back().text += line + "\n";
    } else if (line.starts_with("## ")) {
      sections_.push_back({line.substr(3), {}, {}});
    } else {
      take_table_line(section, line);
    }
  }

  void take_table_line(Section& section, const std::string& line) {
    const bool inside = std::exchange(in_table_, line.starts_with("|"));
    if (!in_table_)
      return;
    const std::vector<std::string> values = cells(line);
    if (!inside) {
      section.tables.push_back({values, {}});
    } else if (!line.starts_with("|-")) {
      Table& table = section.tables.back();
      TableRow& row = table.rows.emplace_back();
      for (size_t i = 0; i < table.headings.size(); i++)
        row[table.headings[i]] = values.at(i);
    }
  }

  std::vector<Section> sections_;
  bool in_block_ = false;
  bool in_table_ = false;
};

}  // namespace

std::vector<Section> sections(const std::string& page) {
  return PageReader().read(page);
}

std::vector<Block> blocks(const std::string& page) {
  std::vector<Block> all;
  for (Section& section : sections(page))
    all.insert(all.end(), section.blocks.begin(), section.blocks.end());
  return all;
}

std::vector<std::string> cells(const std::string& line) {
  std::vector<std::string> all;
  std::istringstream parts(line.substr(1));
  for (std::string cell; std::getline(parts, cell, '|');) {
    cell.erase(0, cell.find_first_not_of(" `"));
    cell.erase(cell.find_last_not_of(" `") + 1);
    replace_all(cell, "<br>", "\n");
    all.push_back(cell);
  }
  return all;
}

void replace_all(std::string& text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
}

}  // namespace support
