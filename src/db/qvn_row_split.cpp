#include "db/qvn_row_split.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace {

/// A field is kept as its first character, or with its length.
void keep_field(char*& field, char* begin, const char* /*end*/) {
  field = begin;
}
void keep_field(std::string_view& field, char* begin, const char* end) {
  field = {begin, end};
}

template <class Field>
void end_field(Field& field, char* begin, char* end) {
  if (end - begin == 2 && begin[0] == '"' && begin[1] == '"') {
    end = begin;
  }
  *end = '\0';
  keep_field(field, begin, end);
}

/// The high bit of each byte of `word` that holds a comma.
uint64_t commas_in(uint64_t word) {
  constexpr uint64_t kCommas = 0x2c2c2c2c2c2c2c2c;
  constexpr uint64_t kLowBits = 0x7f7f7f7f7f7f7f7f;
  const uint64_t differing = word ^ kCommas;
  return ~(((differing & kLowBits) + kLowBits) | differing | kLowBits);
}

/// Finds commas in a text eight bytes at a time: a call record has a hundred of them, a few bytes
/// apart, where a search for each one from the last costs more in calls than in looking.
class comma_finder {
 public:
  explicit comma_finder(char* text) : next_(text), end_(text + std::strlen(text)) {}

  /// The next comma, or null.
  char* find() {
    static_assert(std::endian::native == std::endian::little);
    constexpr int kBitsPerByte = 8;
    while (found_ == 0) {
      if (end_ - next_ < kWord) {
        return find_in_rest();
      }
      uint64_t word = 0;
      std::memcpy(&word, next_, kWord);
      next_ += kWord;
      found_ = commas_in(word);
    }
    char* const comma = next_ - kWord + std::countr_zero(found_) / kBitsPerByte;
    found_ &= found_ - 1;
    return comma;
  }

 private:
  static constexpr std::ptrdiff_t kWord = sizeof(uint64_t);

  char* find_in_rest() {
    char* const comma = std::find(next_, end_, ',');
    next_ = comma == end_ ? end_ : comma + 1;
    return comma == end_ ? nullptr : comma;
  }

  char* next_;  ///< after what was looked at
  char* const end_;
  uint64_t found_ = 0;  ///< commas of the word before `next_` that are still to be given
};

template <class Field>
void split_row(char* row, std::span<Field> fields) {
  const std::size_t last = fields.size() - 1;
  comma_finder commas(row);
  char* begin = row;
  for (std::size_t index = 0; index < last; ++index) {
    char* const comma = commas.find();
    if (!comma) {
      keep_field(fields[index], begin, begin + std::strlen(begin));
      return;
    }
    end_field(fields[index], begin, comma);
    begin = comma + 1;
  }
  end_field(fields[last], begin, begin + std::strcspn(begin, "\n"));
}

}  // namespace

void pg_row_csv_parse(char* row, std::span<char*> fields) {
  split_row(row, fields);
}

void pg_row_csv_parse(char* row, std::span<std::string_view> fields) {
  split_row(row, fields);
}
