/// The codes that a deck has shown so far. Belongs to the thread that reads the deck.
#pragma once

#include "base/qvn_hash.h"

class seen_codes {
 public:
  seen_codes() { qvn_hash_init(&table_); }
  ~seen_codes() { qvn_hash_clear(&table_); }
  seen_codes(const seen_codes&) = delete;
  seen_codes& operator=(const seen_codes&) = delete;

  enum class verdict { fresh, repeated, no_memory };

  /// Records the code under its line number, which differs from every other line's.
  verdict add(const char* code, int line_number) {
    const auto line = static_cast<qvn_hash_value>(line_number);
    const qvn_hash_value stored = qvn_hash_insert(&table_, code, line);
    if (stored == 0) {
      return verdict::fresh;
    }
    return stored == line ? verdict::no_memory : verdict::repeated;
  }

 private:
  qvn_hash_table table_;
};
