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

class code_decks {
 public:
  code_decks() = default;
  ~code_decks() { clear(); }
  code_decks(const code_decks&) = delete;
  code_decks& operator=(const code_decks&) = delete;

  /// Adds a row of kDeckColumns texts, which are copied. False when memory runs out.
  [[nodiscard]] bool add(std::span<char*> row);

  /// The entry of the longest prefix of the code in that deck; of an empty deck id in the first
  /// deck, as they were met, that has one. Null without one. Valid until clear().
  [[nodiscard]] const code_deck_node* find(const std::string& deck_id, const char* code) const;

  void clear();

 private:
  [[nodiscard]] bool note_id(const char* deck_id);
  [[nodiscard]] const code_deck_node* best_match(const char* deck_id, const char* code) const;

  rp_hash_node* tree_ = nullptr;  ///< deck id, then code
  std::vector<std::string> ids_;  ///< distinct, in the order in which they were met
};
