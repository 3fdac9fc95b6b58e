#include "rate_upload/seen_codes.h"

namespace {

constexpr unsigned kOffsetBits = 16;
constexpr uint32_t kMostPieces = (1U << 16) - 1;  // 4 GiB of codes
static_assert(text_pool::kPieceSize == 1U << kOffsetBits);

/// Never 0: pieces count from 1.
uint32_t packed(text_pool::place where) {
  return (where.piece + 1) << kOffsetBits | where.offset;
}

text_pool::place unpacked(uint32_t place) {
  return {(place >> kOffsetBits) - 1, place & (text_pool::kPieceSize - 1)};
}

}  // namespace

seen_codes::verdict seen_codes::add(std::string_view& code) {
  const uint32_t hash = keyed_slots::hash(code);
  const auto is_code = [&](uint32_t place) { return texts_.holds(unpacked(place), code); };
  if (slots_.find(hash, is_code) != 0) {
    return verdict::repeated;
  }
  text_pool::place where{};
  if (!slots_.make_room() || !texts_.add(code, where) || where.piece >= kMostPieces) {
    return verdict::no_memory;
  }
  slots_.add(hash, packed(where));
  code = {texts_.at(where), code.size()};
  return verdict::fresh;
}
