#include "rate_upload/text_pool.h"

#include <cstring>
#include <new>

#include "rate_upload/import_slab.h"

bool text_pool::add_piece() {
  try {
    pieces_.push_back(nullptr);
  } catch (const std::bad_alloc&) {
    return false;
  }
  pieces_.back() = static_cast<char*>(import_slab.alloc(kPieceSize));
  if (!pieces_.back()) {
    pieces_.pop_back();
    return false;
  }
  used_ = 0;
  return true;
}

bool text_pool::add(std::string_view text, place& where) {
  // What is left of the last piece is given up; a text never lies in two.
  if (text.size() >= kPieceSize - used_ && (text.size() >= kPieceSize || !add_piece())) {
    return false;
  }
  where = {static_cast<uint32_t>(pieces_.size() - 1), used_};
  char* const copy = pieces_.back() + used_;
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  used_ += static_cast<uint32_t>(text.size()) + 1;
  return true;
}

void text_pool::clear() {
  for (char* const piece : pieces_) {
    qvn_slab::release(piece);
  }
  pieces_ = {};
  used_ = kPieceSize;
}
