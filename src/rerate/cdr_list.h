/// The call records of one trunk and day, kept as the CSV lines in which they came, in order.
///
///     first -> [next|line text]-> [next|line text]-> ... last
///
/// A day has up to some ten million records of about 800 bytes. The lines lie one behind the other
/// in the blocks of a slab, with 9 bytes and the rounding to 8 more than their text; the blocks go
/// back to the system one after the other as the lines are dropped. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/qvn_slab.h"

class cdr_list {
 public:
  cdr_list() = default;
  ~cdr_list() { clear(); }
  cdr_list(const cdr_list&) = delete;
  cdr_list& operator=(const cdr_list&) = delete;

  /// Appends a copy of the line; false when memory runs out.
  [[nodiscard]] bool add(std::string_view line);

  /// The first line, which may be written to, or null when the list is empty.
  [[nodiscard]] char* first();

  /// Frees the first line of a list that is not empty.
  void drop_first();

  void clear();

  /// Lines in the list.
  [[nodiscard]] uint32_t count() const { return count_; }

 private:
  struct node;
  qvn_slab slab_;
  node* first_ = nullptr;
  node* last_ = nullptr;
  uint32_t count_ = 0;
};
