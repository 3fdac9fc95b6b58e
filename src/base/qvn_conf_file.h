/// The INI reader: one section of one file, handed pair by pair to a handler, or one key looked up.
///
///     # or ; in the first column is a comment
///     [section]                  only the first of its name; the next header ends the reading
///     key=value  # note          blank, "#", ";" or line end ends the value; a tab does not
///     other=general.$log_level   the value of key log_level in section general of this file
///
/// Nothing of a file is kept, and the reader has no state but its observer: any thread may read any
/// file at any time.
#pragma once

#include <cstddef>
#include <cstdint>

/// Takes one pair; 0 to go on, anything else to stop the reading of the section. The texts are
/// valid only during the call.
using conf_callback = int32_t (*)(const char* key, const char* value);

/// What the reader makes of a line; from no_pair on it belongs to the section that is read.
enum class conf_fate : uint8_t {
  comment,
  blank,
  header,         ///< begins a section, and ends the one above
  broken_header,  ///< a "[" without "]": skipped
  outside,        ///< not in the section that is read
  no_pair,        ///< without "=", or nothing in front of it: skipped
  no_value,       ///< skipped
  no_reference,   ///< a reference that leads nowhere: skipped
  taken,          ///< given to the handler
  stopped,        ///< given to the handler, which ended the reading
};

/// One line, or a piece of a line that is too long for one. All texts are valid only during the
/// call, and empty when there is none.
struct conf_line {
  int number = 0;          ///< of the line in the file, from 1
  bool continued = false;  ///< the piece does not begin its line
  bool goes_on = false;    ///< the piece does not end its line
  conf_fate fate = conf_fate::comment;
  const char* key = "";      ///< of a pair, or the name of a header
  const char* value = "";    ///< as the handler gets it
  const char* written = "";  ///< the value as it stands in the file
  const char* dropped = "";  ///< from the character that ended the value to the line's end
  bool is_reference = false;
};

/// Hears of every line up to the one that ends the reading of a section; lookups are not told.
class conf_observer {
 public:
  virtual ~conf_observer() = default;
  virtual void begins(const char* section) = 0;
  virtual void reads(const conf_line& line) = 0;
};

/// Sets the observer of all readings from now on, or none. For programs that report on a
/// configuration; before other threads read one.
void qvn_conf_observe(conf_observer* observer);

/// Reads `section` (case-sensitive) of the file `directory` + `file_name`, whose path is cut at 255
/// characters. Without `lookup_key` every pair goes to `callback`. With it no callback is called:
/// the value of that key (case-sensitive) is copied into `output`, at most `output_length`
/// characters, not terminated when it has that many or more, and the reading stops.
///
/// Returns -1 when the file cannot be opened, else 0, whatever was found or answered. Malformed
/// lines are skipped in silence.
[[nodiscard]] int32_t load_conf_helper(const char* directory, const char* file_name,
                                       const char* section, conf_callback callback,
                                       const char* lookup_key, char* output,
                                       std::size_t output_length);
