/// The INI reader: a file line by line, one section of it handed pair by pair to a handler, or one
/// key looked up.
///
///     # or ; in the first column is a comment
///     [section]                  only the first of its name; the next header ends the reading
///     key=value  # note          blank, "#", ";" or line end ends the value; a tab does not
///     other=general.$log_level   the value of key log_level in section general of this file
///
/// Nothing of a file is kept, and the reader has no state but its own: any thread may read any file
/// at any time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/qvn_file.h"

/// Bytes of paths, lines and referenced values, each with its NUL. A longer line is read in pieces
/// of 253 characters.
inline constexpr std::size_t kConfBufferSize = 256;
using conf_buffer = std::array<char, kConfBufferSize>;

/// What a line is; from broken_header on it is dropped.
enum class conf_kind : uint8_t {
  blank,
  comment,
  header,  ///< begins a section, and ends the one above
  pair,
  broken_header,  ///< a "[" without "]": the section above goes on
  no_pair,        ///< without "=", or nothing in front of it
  no_value,
};

/// One line, or a piece of a line that is too long for one. The texts belong to the reader and last
/// until its next line; they are empty when there is none.
struct conf_line {
  conf_kind kind = conf_kind::blank;
  int number = 0;            ///< of the line in the file, from 1
  bool continued = false;    ///< the piece does not begin its line
  bool goes_on = false;      ///< the piece does not end its line
  const char* key = "";      ///< of a pair, or the name of a header
  const char* value = "";    ///< as it stands in the file
  const char* dropped = "";  ///< from the character that ended the value to the line's end
};

/// A file being read.
class conf_reader {
 public:
  /// The file `directory` + `file_name`, a path that is cut at 255 characters.
  conf_reader(const char* directory, const char* file_name);

  [[nodiscard]] bool is_open() const { return file_ != nullptr; }
  [[nodiscard]] const char* path() const { return path_.data(); }

  /// The next line of whatever kind; false at the end of the file.
  [[nodiscard]] bool next(conf_line& line);

  /// Reads up to the header of that name (case-sensitive); false when there is none.
  [[nodiscard]] bool find_section(const char* name);

  /// The next pair of the section; false at its end.
  [[nodiscard]] bool next_pair(conf_line& line);

 private:
  void read_header(char* text, conf_line& line);
  void read_pair(char* text, conf_line& line);

  conf_buffer path_;
  qvn_file file_;
  conf_buffer buffer_{};
  conf_buffer dropped_{};  ///< the character that ended the value is lost in `buffer_`
  int number_ = 0;
  bool goes_on_ = false;
};

/// Whether the value is a reference to another one of its file.
[[nodiscard]] bool qvn_conf_is_reference(const char* value);

/// The value that a reference leads to, which is not resolved again; empty when it leads nowhere.
/// Any other value is returned as it is.
[[nodiscard]] conf_buffer qvn_conf_resolve(const char* directory, const char* file_name,
                                           const char* value);

/// Takes one pair; 0 to go on, anything else to stop the reading of the section. The texts are
/// valid only during the call.
using conf_callback = int32_t (*)(const char* key, const char* value);

/// Reads `section` (case-sensitive) of the file. Without `lookup_key` every pair goes to
/// `callback`, references resolved; those that lead nowhere are skipped. With it no callback is
/// called: the value of that key (case-sensitive) is copied into `output`, at most `output_length`
/// characters, not terminated when it has that many or more, and the reading stops.
///
/// Returns -1 when the file cannot be opened, else 0, whatever was found or answered. Malformed
/// lines are skipped in silence.
[[nodiscard]] int32_t load_conf_helper(const char* directory, const char* file_name,
                                       const char* section, conf_callback callback,
                                       const char* lookup_key, char* output,
                                       std::size_t output_length);
