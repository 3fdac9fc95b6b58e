#include "rate_upload/text_pool.h"

bool text_pool::add(std::string_view text, place& where) {
  // What is left of the last piece is given up; a text never lies in two.
  if (text.size() >= kPieceSize - used_) {
    if (text.size() >= kPieceSize || !import_piece_add(pieces_, kPieceSize)) {
      return false;
    }
    used_ = 0;
  }
  where = {static_cast<uint32_t>(pieces_.size() - 1), used_};
  char* const copy = &pieces_.back()[used_];
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  used_ += static_cast<uint32_t>(text.size()) + 1;
  return true;
}
