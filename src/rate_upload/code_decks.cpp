#include "rate_upload/code_decks.h"

#include <new>

bool code_decks::add(std::span<char*> row) {
  const char* const code = row[kDeckCode];
  const char* const deck_id = row[kDeckId];
  if (!note_id(deck_id)) {
    return false;
  }
  rp_hash_node* const node = tree_.create(deck_id, code);
  code_deck_node* const entry = node ? code_deck_node_create(row[kDeckCodeId], code, deck_id,
                                                             row[kDeckCountry], row[kDeckName])
                                     : nullptr;
  if (!entry) {
    return false;
  }
  code_deck_node_link(node, entry);
  return true;
}

/// Remembers a deck id that no row has had before.
bool code_decks::note_id(const char* deck_id) {
  if (rp_hash_match_all(tree_.slot(), deck_id)) {
    return true;
  }
  try {
    ids_.emplace_back(deck_id);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

const code_deck_node* code_decks::best_match(const char* deck_id, const char* code) const {
  const rp_hash_node* const deck = rp_hash_match_all(tree_.slot(), deck_id);
  const rp_hash_node* const node = deck ? rp_hash_search(&deck->sub, code) : nullptr;
  return node ? static_cast<const code_deck_node*>(node->items) : nullptr;
}

const code_deck_node* code_decks::find(const std::string& deck_id, const char* code) const {
  if (!deck_id.empty()) {
    return best_match(deck_id.c_str(), code);
  }
  for (const std::string& id : ids_) {
    if (const code_deck_node* const entry = best_match(id.c_str(), code)) {
      return entry;
    }
  }
  return nullptr;
}
