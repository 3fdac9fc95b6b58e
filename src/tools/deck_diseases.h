/// What lets a deck import nonsense, or nothing at all, although each of its lines may be accepted:
/// price columns under another name, spreadsheet exports, other encodings. Fed with the deck's
/// lines by the daemon's own validation; judges what that makes of them. Main thread.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "rate_upload/deck_validation.h"
#include "tools/tool_status.h"

/// One disease of a deck.
struct deck_finding {
  int line;        ///< the first one that has it, numbered as in the daemon's messages
  uint32_t count;  ///< lines that have it
  std::string what;
  std::string cure;
  tool_status status;  ///< kUnusable: the server would refuse the whole deck
};

class deck_diseases {
 public:
  /// `names_are_utf8`: whether names in another encoding are a disease.
  explicit deck_diseases(bool names_are_utf8) : names_are_utf8_(names_are_utf8) {}

  /// The header, the lines after it, and what the daemon makes of those that it accepts; as they
  /// come. Throw std::bad_alloc when memory runs out.
  void look_at_header(const rate_header& header, const rate_deck_line& line);
  void look_at_line(const rate_deck_line& line);
  void look_at_values(const import_values& values, const rate_deck_line& line);

  /// The header's columns that the daemon knows, or ignores, by their names and separated by ", ".
  [[nodiscard]] const std::string& known_columns() const { return known_columns_; }
  [[nodiscard]] const std::string& ignored_columns() const { return ignored_columns_; }

  /// Those of the header first.
  [[nodiscard]] std::vector<deck_finding> findings() const;

 private:
  /// Diseases of lines, in the order in which they are reported.
  enum disease : std::size_t {
    kCarriageReturn,
    kZeroByte,
    kLongLine,
    kQuotes,
    kNoPrice,
    kPoints,
    kEncoding,
    kNoSuchDate,
    kBackslash,
    kBackslashLast,
    kDiseases,
  };
  struct seen {
    int first = 0;
    int last = 0;
    uint32_t count = 0;
  };

  void list_columns(const rate_deck_line& line);
  void add_to_header(std::string what, std::string cure);
  void judge_names(const std::string& header);
  void note(disease which, int line, uint32_t count = 1);
  void look_at_length(const rate_deck_line& line);
  void look_at_points(const rate_deck_line& line);
  void look_at_name(std::string_view name, int line);
  void look_at_date(const import_date& date, int line);

  bool names_are_utf8_;
  bool has_prices_ = false;  ///< the header has a column for them
  rate_header header_{};
  int header_line_ = 0;
  std::string known_columns_;
  std::string ignored_columns_;
  std::vector<deck_finding> of_header_;
  std::array<seen, kDiseases> seen_{};
  int open_line_ = 0;     ///< a line of which only a piece has been read so far, or 0
  bool in_long_ = false;  ///< and a piece of which was met before
  std::array<const char*, 2> good_dates_{};  ///< their texts, which the deck's lines share
};
