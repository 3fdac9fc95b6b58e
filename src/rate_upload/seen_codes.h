/// The codes that a deck has shown so far, and their texts. Belongs to the thread that reads the
/// deck.
///
///     slots   [ 0 | hash, place | 0 | 0 | hash, place | ... ]   open addressing, a power of two
///                          '-> texts                            in the order of the deck
///
/// A slot is 8 bytes: 32 bits of the hash above 32 bits that say where the code lies. At most three
/// of four are in use. The hash is keyed: a deck's author cannot have his codes fall on one
/// slot. Nobody sees the order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "rate_upload/text_pool.h"

class seen_codes {
 public:
  seen_codes() = default;
  ~seen_codes();
  seen_codes(const seen_codes&) = delete;
  seen_codes& operator=(const seen_codes&) = delete;

  enum class verdict { fresh, repeated, no_memory };

  /// Says that the code is probably the next to be added: its place is fetched meanwhile.
  void expect(std::string_view code);

  /// Keeps the code unless it is there already. A fresh one then is the kept text, which has a NUL
  /// behind it and lives as long as this object.
  [[nodiscard]] verdict add(std::string_view& code);

 private:
  [[nodiscard]] std::size_t find(std::string_view code, uint32_t hash) const;
  [[nodiscard]] const char* text_of(uint64_t slot) const;
  [[nodiscard]] bool grow();

  text_pool texts_;
  uint64_t* slots_ = nullptr;
  std::size_t capacity_ = 0;  ///< slots
  std::size_t count_ = 0;     ///< codes
  std::string_view expected_;
  uint32_t expected_hash_ = 0;
};
