/// The INI reader: one section of one file, handed pair by pair to a handler, or one key looked up.
///
///     # or ; in the first column is a comment
///     [section]                  only the first of its name; the next header ends the reading
///     key=value  # note          blank, "#", ";" or line end ends the value; a tab does not
///     other=general.$log_level   the value of key log_level in section general of this file
///
/// Nothing of a file is kept, and the reader has no state: any thread may read any file at any
/// time.
#pragma once

#include <cstddef>
#include <cstdint>

/// Takes one pair; 0 to go on, anything else to stop the reading of the section. The texts are
/// valid only during the call.
using conf_callback = int32_t (*)(const char* key, const char* value);

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
