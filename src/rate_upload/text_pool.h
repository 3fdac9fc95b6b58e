/// Texts that are kept until all of them are given up: one after the other, without a header each.
/// Belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "rate_upload/import_slab.h"

class text_pool {
 public:
  /// Where a text lies.
  struct place {
    uint32_t piece;
    uint32_t offset;  ///< below kPieceSize
  };
  static constexpr uint32_t kPieceSize = 1U << 16;

  /// Keeps a copy with a NUL after it; the text must be shorter than a piece. False when memory
  /// runs out.
  [[nodiscard]] bool add(std::string_view text, place& where);

  [[nodiscard]] const char* at(place where) const { return &pieces_[where.piece][where.offset]; }

  /// Whether the text there is this one.
  [[nodiscard]] bool holds(place where, std::string_view text) const {
    const char* const kept = at(where);
    return std::strncmp(kept, text.data(), text.size()) == 0 && kept[text.size()] == '\0';
  }

  void clear() { *this = {}; }

 private:
  std::vector<import_items<char>> pieces_;
  uint32_t used_ = kPieceSize;  ///< bytes of the last piece
};
