#include "rerate/cdr_line.h"

#include <bit>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

constexpr std::size_t kBlock = 64;  ///< bytes looked at together, a bit each
constexpr std::string_view kAbsent = "NULL";
constexpr char kSeparator = '?';

#if defined(__SSE2__)

/// Copies a block with separators for its commas; a bit for each of them.
uint64_t copy_block(char* to, const char* from) {
  const __m128i comma = _mm_set1_epi8(',');
  const __m128i change = _mm_set1_epi8(',' ^ kSeparator);
  uint64_t found = 0;
  for (std::size_t i = 0; i < kBlock; i += sizeof comma) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + i));
    const __m128i commas = _mm_cmpeq_epi8(bytes, comma);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i),
                     _mm_xor_si128(bytes, _mm_and_si128(commas, change)));
    found |= static_cast<uint64_t>(_mm_movemask_epi8(commas)) << i;
  }
  return found;
}

/// A bit for each of four differences between neighbours that is `wanted`.
unsigned differences(const uint32_t* values, int wanted) {
  const auto* const place = reinterpret_cast<const __m128i*>(values);
  const auto* const next = reinterpret_cast<const __m128i*>(values + 1);
  const __m128i difference = _mm_sub_epi32(_mm_loadu_si128(next), _mm_loadu_si128(place));
  const __m128i equal = _mm_cmpeq_epi32(difference, _mm_set1_epi32(wanted));
  return static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(equal)));
}

#else

uint64_t copy_block(char* to, const char* from) {
  uint64_t found = 0;
  for (std::size_t i = 0; i < kBlock; ++i) {
    const bool comma = from[i] == ',';
    to[i] = comma ? kSeparator : from[i];
    found |= uint64_t{comma} << i;
  }
  return found;
}

unsigned differences(const uint32_t* values, int wanted) {
  unsigned found = 0;
  for (unsigned i = 0; i < 4; ++i) {
    found |= unsigned{values[i + 1] - values[i] == static_cast<uint32_t>(wanted)} << i;
  }
  return found;
}

#endif

bool has_two_quotes(const char* text) {
  return text[0] == '"' && text[1] == '"';
}

/// Copies 32 bytes at a time, so up to 31 beyond the end, which is cheaper than to know how many.
char* copy_run(char* to, const char* from, std::size_t size) {
  constexpr std::size_t kPiece = 32;
  std::memcpy(to, from, kPiece);
  for (std::size_t done = kPiece; done < size; done += kPiece) {
    std::memcpy(to + done, from + done, kPiece);
  }
  return to + size;
}

char* put(char* to, std::string_view text) {
  if (text.empty()) {
    std::memcpy(to, kAbsent.data(), kAbsent.size());
    return to + kAbsent.size();
  }
  std::memcpy(to, text.data(), text.size());
  return to + text.size();
}

}  // namespace

void cdr_line::split(const char* line, std::size_t length, std::size_t columns, char* memory) {
  text_ = memory;
  columns_ = columns;
  const std::size_t reached = copy_columns(line, length, memory);
  std::size_t end = length;
  if (reached + 1 == columns) {
    const char* const last = line + begins_[reached];
    const std::size_t left = length - begins_[reached];
    const auto* const feed = static_cast<const char*>(std::memchr(last, '\n', left));
    const std::size_t size = feed ? static_cast<std::size_t>(feed - last) : left;
    std::memcpy(memory + begins_[reached], last, size);
    end = begins_[reached] + size;
  }
  for (std::size_t column = reached + 1; column < columns; ++column) {
    memory[end++] = kSeparator;
    begins_[column] = static_cast<uint32_t>(end);
  }
  memory[end++] = '\n';
  begins_[columns] = static_cast<uint32_t>(end);
  find_empty(reached + 1 == columns ? columns : reached);
}

std::size_t cdr_line::copy_columns(const char* line, std::size_t length, char* memory) {
  std::size_t reached = 0;
  for (std::size_t offset = 0; offset < length; offset += kBlock) {
    const char* block = line + offset;
    std::array<char, kBlock> last_block;
    if (length - offset < kBlock) {
      std::memcpy(last_block.data(), block, length - offset);
      std::memset(last_block.data() + (length - offset), 0, kBlock - (length - offset));
      block = last_block.data();
    }
    uint64_t commas = copy_block(memory + offset, block);
    for (; commas != 0; commas &= commas - 1) {
      const auto place = offset + static_cast<std::size_t>(std::countr_zero(commas));
      begins_[++reached] = static_cast<uint32_t>(place + 1);
      if (reached + 1 == columns_) {
        return reached;
      }
    }
  }
  return reached;
}

void cdr_line::find_empty(std::size_t quotes_tested) {
  constexpr std::size_t kStep = 4;
  empty_ = {};
  for (std::size_t column = 0; column < columns_; column += kStep) {
    uint64_t empty = differences(&begins_[column], 1);
    for (unsigned pairs = differences(&begins_[column], 3); pairs != 0; pairs &= pairs - 1) {
      const auto bit = static_cast<std::size_t>(std::countr_zero(pairs));
      if (column + bit < quotes_tested && has_two_quotes(text_ + begins_[column + bit])) {
        empty |= uint64_t{1} << bit;
      }
    }
    empty_[column / kBits] |= empty << column % kBits;
  }
  empty_[columns_ / kBits] &= (uint64_t{1} << columns_ % kBits) - 1;  // none after the last
}

std::size_t cdr_line::joined_room(std::span<const std::string_view> texts) const {
  std::size_t room = begins_[columns_] + columns_ * kAbsent.size() + kSlack;
  for (const std::string_view text : texts) {
    room += text.size();
  }
  return room;
}

char* cdr_line::join(char* out, std::span<const cdr_column> replaced,
                     std::span<const std::string_view> texts) const {
  std::array<uint64_t, kWords> changed = empty_;
  for (const cdr_column column : replaced.first(texts.size())) {
    changed[column / kBits] |= uint64_t{1} << column % kBits;
  }
  std::size_t copied = 0;
  std::size_t next = 0;
  for (std::size_t word = 0; word < kWords; ++word) {
    for (uint64_t left = changed[word]; left != 0; left &= left - 1) {
      const std::size_t column = word * kBits + static_cast<std::size_t>(std::countr_zero(left));
      const bool is_replaced = next < texts.size() && replaced[next] == column;
      out = copy_run(out, text_ + copied, begins_[column] - copied);
      out = put(out, is_replaced ? texts[next++] : std::string_view());
      copied = begins_[column + 1];
      *out++ = text_[copied - 1];
    }
  }
  return copy_run(out, text_ + copied, begins_[columns_] - copied);
}
