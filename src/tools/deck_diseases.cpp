#include "tools/deck_diseases.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "base/qvn_text.h"

namespace {

constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
constexpr std::string_view kOtherSeparators = ";\t|";

constexpr column_kind kPrices[] = {column_kind::rate, column_kind::intra_rate,
                                   column_kind::inter_rate, column_kind::local_rate,
                                   column_kind::setup_fee};

struct description {
  const char* what;
  const char* cure;
  tool_status status = kFindings;
};

/// By disease.
constexpr description kDescriptions[] = {
    {"a carriage return without a line feed: what follows it in the line does not count",
     R"(tr '\r' '\n' <DECK >NEW)"},
    {"a zero byte: what follows it in the line does not count", R"(tr -d '\0' <DECK >NEW)"},
    {"longer than 1,023 characters: read as several lines", "shorten the line"},
    {"a quoted cell: quotes count, and commas between them separate; only code_name and country "
     "lose their quotes",
     "save without quotes, or: tr -d '\"' <DECK >NEW"},
    {"no price: the rate is stored without one", "add the price, or take the line out"},
    {"a price with several points: what follows the second does not count", "correct the price"},
    {"a name that is not UTF-8: a database in UTF8 refuses the whole deck",
     "iconv -f LATIN1 -t UTF-8 DECK >NEW, or --encoding", kUnusable},
    {"a date that does not exist: the server refuses the whole deck", "correct the date",
     kUnusable},
    {R"(a backslash in a name: \n, \t and \x2c become a line feed, a tab and a comma)",
     "take it out"},
    {"a backslash at the end of a name: the server refuses the whole deck", "take it out",
     kUnusable},
};

bool is_utf16(std::string_view raw) {
  return raw.starts_with("\xff\xfe") || raw.starts_with("\xfe\xff") ||
         raw.find('\0') != std::string_view::npos;
}

std::string without_mark(const std::string& header) {
  return header.starts_with(kByteOrderMark) ? header.substr(kByteOrderMark.size()) : header;
}

std::string without_quotes(std::string header) {
  std::erase(header, '"');
  return header;
}

/// With commas in place of the separator.
std::string separated(std::string header, char separator) {
  std::ranges::replace(header, separator, kCellSeparator);
  return header;
}

bool has(const rate_header& header, column_kind kind) {
  return std::ranges::count(std::span(header.kinds).first(header.count), kind) > 0;
}

bool is_price(column_kind kind) {
  return std::ranges::find(kPrices, kind) != std::end(kPrices);
}

bool is_name(column_kind kind) {
  return kind == column_kind::code_name || kind == column_kind::country;
}

/// How many of its columns the daemon knows.
std::ptrdiff_t known(const std::string& header) {
  const rate_header parsed = rate_header_parse(header);
  return static_cast<std::ptrdiff_t>(parsed.count) -
         std::ranges::count(std::span(parsed.kinds).first(parsed.count), column_kind::ignored);
}

/// The separator by which the daemon would know most columns.
char separator_of(const std::string& header) {
  char best = kCellSeparator;
  for (const char separator : kOtherSeparators) {
    best = known(separated(header, separator)) > known(separated(header, best)) ? separator : best;
  }
  return best;
}

/// How many texts the daemon does not read as they follow a carriage return.
uint32_t hidden_texts(std::string_view rest) {
  constexpr std::string_view kEnds("\r\n\0", 3);
  uint32_t count = 0;
  for (std::size_t at = 1; at < rest.size(); ++at) {
    const bool begins = kEnds.find(rest[at - 1]) != std::string_view::npos;
    count += begins && kEnds.find(rest[at]) == std::string_view::npos ? 1 : 0;
  }
  return count;
}

bool has_points(std::string_view text) {
  const std::size_t first = text.find('.');
  return first != std::string_view::npos && text.find('.', first + 1) != std::string_view::npos;
}

bool exists(const char* date) {
  int year = 0;
  unsigned month = 0;
  unsigned day = 0;
  return std::sscanf(date, "%d-%u-%u", &year, &month, &day) == 3 &&
         std::chrono::year_month_day(std::chrono::year(year), std::chrono::month(month),
                                     std::chrono::day(day))
             .ok();
}

}  // namespace

void deck_diseases::note(disease which, int line, uint32_t count) {
  seen& place = seen_[which];
  if (place.last == line) {
    return;
  }
  place.first = place.count == 0 ? line : place.first;
  place.last = line;
  place.count += count;
}

void deck_diseases::add_to_header(std::string what, std::string cure) {
  of_header_.push_back({header_line_, 1, std::move(what), std::move(cure), kFindings});
}

void deck_diseases::list_columns(const rate_deck_line& line) {
  for (std::size_t i = 0; i < line.cells.size(); ++i) {
    std::string& list =
        header_.kinds[i] == column_kind::ignored ? ignored_columns_ : known_columns_;
    list += list.empty() ? "" : ", ";
    list += line.cells[i].empty() ? "(no name)" : without_mark(std::string(line.cells[i]));
  }
}

void deck_diseases::look_at_header(const rate_header& header, const rate_deck_line& line) {
  header_ = header;
  header_line_ = line.number;
  if (is_utf16(line.raw)) {
    add_to_header("UTF-16", "save as UTF-8, or: iconv -f UTF-16 -t UTF-8 DECK >NEW");
    return;
  }
  list_columns(line);
  judge_names(std::string(line.text));
  look_at_line(line);
}

/// Reports what keeps the names of columns from being known, then those that are missing for good.
void deck_diseases::judge_names(const std::string& header) {
  const char separator = separator_of(without_quotes(without_mark(header)));
  const std::string cured = separated(without_quotes(without_mark(header)), separator);
  if (known(cured) > known(separated(without_quotes(header), separator))) {
    add_to_header("a byte order mark before the first name: that column is ignored",
                  R"(sed -i '1s/^\xef\xbb\xbf//' DECK)");
  }
  if (separator != kCellSeparator) {
    const std::string name = separator == '\t' ? "TAB" : std::string(1, separator);
    const std::string pattern = separator == '\t' ? "\\t" : name;
    add_to_header("the separator is " + name + ", not a comma",
                  "save with commas, or: sed 's/,/./g; s/" + pattern + "/,/g' DECK >NEW");
  }
  if (known(cured) > known(separated(without_mark(header), separator))) {
    add_to_header("names of columns in quotes: these columns are ignored",
                  "save without quotes, or: tr -d '\"' <DECK >NEW");
  }
  const rate_header columns = rate_header_parse(cured);
  for (const auto& [kind, name] : {std::pair(column_kind::code, "code"),
                                   std::pair(column_kind::effective_date, "effective_date")}) {
    if (!has(columns, kind)) {
      add_to_header(std::string("no column ") + name + ": the deck is refused",
                    std::string("name the column ") + name);
    }
  }
  has_prices_ = std::ranges::any_of(std::span(kPrices).first(4),
                                    [&](column_kind kind) { return has(columns, kind); });
  if (!has_prices_) {
    add_to_header(
        "no column rate, intra_rate, inter_rate or local_rate: every rate is stored without a "
        "price",
        "name the column of the price rate");
  }
}

/// A piece is part of a long line when another piece follows it.
void deck_diseases::look_at_length(const rate_deck_line& line) {
  const bool continues = open_line_ != 0 && line.number == open_line_ + 1;
  if (continues && !in_long_) {
    note(kLongLine, open_line_);
  }
  in_long_ = continues;
  open_line_ = line.raw.ends_with('\n') ? 0 : line.number;
}

void deck_diseases::look_at_line(const rate_deck_line& line) {
  look_at_length(line);
  const std::string_view rest = line.raw.substr(line.text.size());
  if (rest.starts_with('\0')) {
    note(kZeroByte, line.number);
  } else if (const uint32_t hidden = rest.size() > 2 ? hidden_texts(rest) : 0; hidden > 0) {
    note(kCarriageReturn, line.number, hidden);
  }
  if (line.number == header_line_ || line.text.find('"') == std::string_view::npos) {
    return;
  }
  bool quoted = line.cells.size() > header_.count;
  for (std::size_t i = 0; i < std::min(line.cells.size(), header_.count); ++i) {
    const column_kind kind = header_.kinds[i];
    quoted |= line.cells[i].starts_with('"') && !is_name(kind) && kind != column_kind::ignored;
  }
  if (quoted) {
    note(kQuotes, line.number);
  }
}

void deck_diseases::look_at_name(std::string_view name, int line) {
  if (names_are_utf8_ && !qvn_is_utf8(name)) {
    note(kEncoding, line);
  }
  if (name.find('\\') != std::string_view::npos) {
    const std::size_t last = name.find_last_not_of('\\');
    const std::size_t trailing = name.size() - (last == std::string_view::npos ? 0 : last + 1);
    note(trailing % 2 == 1 ? kBackslashLast : kBackslash, line);
  }
}

void deck_diseases::look_at_date(const import_date& date, int line) {
  if (!date.text || std::ranges::find(good_dates_, date.text) != good_dates_.end()) {
    return;
  }
  if (exists(date.text)) {
    good_dates_ = {date.text, good_dates_[0]};
  } else {
    note(kNoSuchDate, line);
  }
}

void deck_diseases::look_at_points(const rate_deck_line& line) {
  if (!has_points(line.text)) {
    return;
  }
  for (std::size_t i = 0; i < header_.count; ++i) {
    if (is_price(header_.kinds[i]) && has_points(line.cells[i])) {
      note(kPoints, line.number);
    }
  }
}

void deck_diseases::look_at_values(const import_values& values, const rate_deck_line& line) {
  if (has_prices_ &&
      std::max({values.rate, values.intra_rate, values.inter_rate, values.local_rate}) < 0.0F) {
    note(kNoPrice, line.number);
  }
  look_at_points(line);
  look_at_name(values.code_name, line.number);
  look_at_name(values.country, line.number);
  look_at_date(values.effective, line.number);
  look_at_date(values.end, line.number);
}

std::vector<deck_finding> deck_diseases::findings() const {
  static_assert(std::size(kDescriptions) == kDiseases);
  std::vector<deck_finding> all = of_header_;
  for (std::size_t i = 0; i < kDiseases; ++i) {
    // Lines that end in a carriage return alone are one long one as well.
    const bool follows = i == kLongLine && seen_[kCarriageReturn].count > 0;
    if (seen_[i].count > 0 && !follows) {
      const description& text = kDescriptions[i];
      all.push_back({seen_[i].first, seen_[i].count, text.what, text.cure, text.status});
    }
  }
  return all;
}
