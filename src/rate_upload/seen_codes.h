/// The codes that a deck has shown so far, and their texts. Belongs to the thread that reads the
/// deck. A deck's author cannot have his codes fall on one slot.
#pragma once

#include <string_view>

#include "rate_upload/keyed_slots.h"
#include "rate_upload/text_pool.h"

class seen_codes {
 public:
  enum class verdict { fresh, repeated, no_memory };

  /// Fetches the slot of a code that will probably be added soon.
  void expect(std::string_view code) const { slots_.fetch(keyed_slots::hash(code)); }

  /// Keeps the code unless it is there already. A fresh one then is the kept text, which has a NUL
  /// after it and lives as long as this object.
  [[nodiscard]] verdict add(std::string_view& code);

 private:
  text_pool texts_;
  keyed_slots slots_;
};
