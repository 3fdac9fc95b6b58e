/// The code decks of a portal, from which an import may take code names and countries: trees of
/// codes by deck id. Belongs to the thread that fills it.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "rate/qvn_rate_table.h"

/// The columns of a row, in this order.
enum code_deck_column : std::size_t {
  kDeckCodeId,
  kDeckCode,
  kDeckId,
  kDeckCountry,
  kDeckName,
  kDeckColumns,
};

/// Loads the rows of all decks.
inline constexpr const char* kCodeDeckCopy =
    "copy code (code_id,code, code_deck_id, country, name) to stdout delimiter as ',' csv header";

class code_decks {
 public:
  /// Adds a row of kDeckColumns texts, which are copied. False when memory runs out.
  [[nodiscard]] bool add(std::span<char*> row);

  /// The entry of the longest prefix of the code in that deck; of an empty deck id in the first
  /// deck, as they were met, that has one. Null without one. Valid as long as this object.
  [[nodiscard]] const code_deck_node* find(const std::string& deck_id, const char* code) const;

 private:
  [[nodiscard]] bool note_id(const char* deck_id);
  [[nodiscard]] const code_deck_node* best_match(const char* deck_id, const char* code) const;

  code_deck_node_tree tree_;      ///< deck id, then code
  std::vector<std::string> ids_;  ///< distinct, in the order in which they were met
};
