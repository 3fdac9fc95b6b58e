/// One accepted line of a rate deck, and the list of them, which runs from the last line to the
/// first. Belongs to the worker thread of its job.
#pragma once

#include <cstdint>
#include <string_view>

/// A date of the deck in the two forms in which it is used.
struct import_date {
  const char* text =
      nullptr;        ///< "year-month-day hour:minute:second+00" as the deck's numbers, or null
  int64_t epoch = 0;  ///< seconds since the epoch, normalised; 0 without a date
};

/// The values of one line, before it is known whether the line is accepted. The texts are the
/// line's own; an empty one is absent.
struct import_values {
  uint16_t zone = 0;
  uint16_t interval = 0;  ///< billing increment, seconds
  uint16_t seconds = 0;   ///< seconds that the rate is charged for
  uint16_t rate_type = 0;
  uint16_t min_time = 0;    ///< seconds
  uint16_t grace_time = 0;  ///< seconds
  std::string_view code;
  std::string_view code_name;
  std::string_view country;
  import_date effective;
  import_date end;
  float rate = -1.0F;  ///< -1 when not given, as the three below
  float intra_rate = -1.0F;
  float inter_rate = -1.0F;
  float local_rate = -1.0F;
  float setup_fee = 0.0F;
};

/// The billing increment and the charged seconds that a line gets which gives none, or 0.
inline constexpr uint16_t kDefaultInterval = 6;
inline constexpr uint16_t kDefaultSeconds = 60;

/// An accepted line. Its texts lie behind it in the same piece of memory, but for those of the
/// dates, which belong to the task and are shared by the lines of one date. Bytes (x86-64): 104
/// plus its texts.
struct import_record {
  uint16_t zone;
  uint16_t interval;
  uint16_t seconds;
  uint16_t rate_type;
  uint16_t min_time;
  uint16_t grace_time;
  const char* code;       ///< never empty
  const char* code_name;  ///< null when empty, as country
  const char* country;
  const char* effective_text;
  const char* end_text;  ///< null when the line has no end date
  int64_t effective_date;
  int64_t end_date;
  float rate;
  float setup_fee;
  float intra_rate;
  float inter_rate;
  float local_rate;
  import_record* next;
};

/// Owns import records; the newest comes first.
class import_list {
 public:
  import_list() = default;
  ~import_list() { clear(); }
  import_list(const import_list&) = delete;
  import_list& operator=(const import_list&) = delete;

  /// Copies the values into a record at the front, with the defaults for increments of 0. False
  /// when memory runs out.
  [[nodiscard]] bool push(const import_values& values);

  [[nodiscard]] const import_record* first() const { return first_; }
  [[nodiscard]] bool empty() const { return first_ == nullptr; }

  /// Frees the first record; the list must not be empty.
  void pop();
  void clear();

 private:
  import_record* first_ = nullptr;
};
