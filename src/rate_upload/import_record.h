/// One accepted line of a rate deck, and the list of them, which runs from the last line to the
/// first. Belongs to the worker thread of its job.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "rate_upload/slab_stack.h"
#include "rate_upload/text_pool.h"

/// A date of the deck in the two forms in which it is used.
struct import_date {
  const char* text =
      nullptr;        ///< "year-month-day hour:minute:second+00" as the deck's numbers, or null
  int64_t epoch = 0;  ///< seconds since the epoch, normalised; 0 without a date

  bool operator==(const import_date&) const = default;
};

/// What nearly all lines of a deck have in common.
struct import_terms {
  uint16_t zone = 0;
  uint16_t interval = 0;  ///< billing increment, seconds
  uint16_t seconds = 0;   ///< seconds that the rate is charged for
  uint16_t rate_type = 0;
  uint16_t min_time = 0;    ///< seconds
  uint16_t grace_time = 0;  ///< seconds
  float setup_fee = 0.0F;
  import_date effective;  ///< its text belongs to the task, as that of the end
  import_date end;        ///< without a text when the line has no end date

  bool operator==(const import_terms&) const = default;
};

/// The values of one line, before it is known whether the line is accepted. The texts are the
/// line's own; an empty one is absent.
struct import_values : import_terms {
  std::string_view code;
  std::string_view code_name;
  std::string_view country;
  float rate = -1.0F;  ///< -1 when not given, as the three below
  float intra_rate = -1.0F;
  float inter_rate = -1.0F;
  float local_rate = -1.0F;
};

/// The billing increment and the charged seconds that a line gets which gives none, or 0.
inline constexpr uint16_t kDefaultInterval = 6;
inline constexpr uint16_t kDefaultSeconds = 60;

/// An accepted line. Bytes (x86-64): 48, and its code in the set of seen codes; names and terms are
/// shared with the lines around it that have the same.
struct import_record {
  const char* code;       ///< never empty; belongs to the seen codes
  const char* code_name;  ///< null when empty, as country; both belong to the list
  const char* country;
  const import_terms* terms;  ///< belongs to the list
  float rate;
  float intra_rate;
  float inter_rate;
  float local_rate;
};

/// Owns import records; the newest comes first.
class import_list {
 public:
  /// Makes a record at the front, with the defaults for increments of 0. The code must outlive it
  /// and end with a NUL. False when memory runs out.
  [[nodiscard]] bool push(const import_values& values);

  /// The list must not be empty.
  [[nodiscard]] const import_record* first() const { return &records_.top(); }
  [[nodiscard]] bool empty() const { return records_.empty(); }

  /// Calls `look` with each record in the list's order, while it returns true.
  template <class Look>
  void look_through(Look look) const {
    records_.look_through(look);
  }

  /// Frees the first record; the list must not be empty.
  void pop() { records_.pop(); }
  void clear();

 private:
  [[nodiscard]] bool keep_name(std::string_view name, const char*& kept);
  [[nodiscard]] const import_terms* keep_terms(const import_terms& given);

  slab_stack<import_record> records_;
  slab_stack<import_terms> terms_;
  text_pool names_;
  /// What was kept last of each hash; a deck without order merely keeps some twice.
  std::array<std::string_view, 128> recent_names_{};
  std::array<const import_terms*, 32> recent_terms_{};
};
