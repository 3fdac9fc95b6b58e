/// Sections as tables of settings, each of which reads one value into a field of its module. Main
/// thread, unless the module that owns the field says otherwise.
///
/// A bad value is reported and stays stored all the same; the keys after it in its section are not
/// read, and the load as a whole still succeeds. Messages carry the module word and the line of the
/// setting that they are about.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "base/qvn_conf_file.h"

/// A number of any section, with its range and its messages.
struct qvn_number_setting {
  const char* source;    ///< module word of its messages
  uint16_t& (*field)();  ///< of 16 bits; null: `wide_field`
  uint32_t lowest;       ///< of what is stored
  uint32_t highest;
  const char* when_empty;
  const char* when_out_of_range;
  uint32_t& (*wide_field)() = nullptr;
  uint32_t factor = 1;         ///< what is stored is the number times this
  bool tolerant = false;       ///< a bad value is logged at INFO and does not stop its section
  bool zero_is_unset = false;  ///< a stored 0 leaves the default in use
  int line = __builtin_LINE();
};

/// One key of a section. The tables of them are the sections' handlers and what others may report
/// about a configuration.
struct qvn_setting {
  const char* key;                             ///< whatever its case
  int32_t (*read)(const char* value);          ///< stores; 0 to go on, -1 to stop the section
  const qvn_number_setting* number = nullptr;  ///< null: a text
  std::size_t most_characters = 0;             ///< of a text, which is cut there; 0: any number
  bool secret = false;                         ///< not to be shown
};

/// A section of the main configuration file.
struct qvn_conf_section {
  const char* name;
  std::span<const qvn_setting> settings;
  conf_callback handler;
};

/// The setting of that key, or null.
[[nodiscard]] const qvn_setting* qvn_setting_find(std::span<const qvn_setting> settings,
                                                  const char* key);

/// Reads a value as the setting of that key does; 0 for an unknown key.
[[nodiscard]] int32_t qvn_setting_read(std::span<const qvn_setting> settings, const char* key,
                                       const char* value);

/// What is stored for the value: base-10, times the factor, cut to the field's width.
[[nodiscard]] uint32_t qvn_setting_stored(const qvn_number_setting& setting, const char* value);

/// Stores a number. 0, or -1, with the setting's NOTICE, when the value is empty or the stored
/// number out of range; a tolerant setting gives 0 and INFO.
[[nodiscard]] int32_t qvn_conf_read_number(const qvn_number_setting& setting, const char* value);

/// The same as the `read` of a setting.
template <const qvn_number_setting& Setting>
int32_t qvn_conf_read_number(const char* value) {
  return qvn_conf_read_number(Setting, value);
}

/// Reads a base-10 number into a field of 16 bits, cut to its width.
[[nodiscard]] uint16_t qvn_conf_number16(const char* value);

/// Stores a text. 0, or -1 when the value is empty, with `when_empty` as NOTICE under the module
/// word `source` and the caller's line, or when memory runs out, with the text as it was.
[[nodiscard]] int32_t qvn_conf_read_text(std::string& text, const char* value,
                                         const char* when_empty, const char* source,
                                         int line = __builtin_LINE());

/// Most characters of a directory.
inline constexpr std::size_t kMostDirectoryCharacters = 197;

/// As qvn_conf_read_text, for a directory: cut at 197 characters, with a "/" appended when it has
/// none.
[[nodiscard]] int32_t qvn_conf_read_directory(std::string& directory, const char* value,
                                              const char* when_empty, const char* source,
                                              int line = __builtin_LINE());

/// Logs the message as NOTICE under that module word and line. Returns -1.
int32_t qvn_conf_refuse(const char* message, const char* source, int line = __builtin_LINE());

/// Replaces a text by a copy of `value`; false when memory runs out, with the text as it was.
[[nodiscard]] bool qvn_conf_assign(std::string& text, const char* value);

/// False when a text of the configuration was lost as memory ran out, which has been logged.
[[nodiscard]] bool qvn_settings_whole();
