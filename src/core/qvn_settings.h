/// The main settings: defaults, the sections `general` and `CLI` of the main configuration file,
/// and the check before the modules start. Main thread, before any other thread but the log's.
///
/// A bad value is reported and stays stored all the same; the keys after it in its section are not
/// read, and the load as a whole still succeeds.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "core/qvn_core_ctrl.h"

/// Sets the defaults of the console and of the job limits. Returns 0.
int32_t qvn_default_conf_init();

/// Reads both sections. 0, or -1 when the file cannot be opened.
[[nodiscard]] int32_t qvn_load_config();

/// Reads the section `CLI` alone, without defaults: all that the console client needs.
[[nodiscard]] int32_t qvn_load_cli_config();

/// 0 when the console listen address is set; else -1, with a NOTICE.
[[nodiscard]] int32_t qvn_check_config();

/// False when a text of the configuration was lost as memory ran out, which has been logged.
[[nodiscard]] bool qvn_settings_whole();

/// Handlers of the two sections: 0 to go on, -1, with a NOTICE, to stop the section.
int32_t read_general_config(const char* key, const char* value);
int32_t read_cli_config(const char* key, const char* value);

/// Reads a base-10 number into a field of 16 bits, cut to its width.
[[nodiscard]] uint16_t qvn_conf_number16(const char* value);

/// A number of any section, with its range and its messages.
struct qvn_number_setting {
  uint16_t qvn_core_ctrl::*field;  ///< of 16 bits; null: `wide_field`
  uint32_t lowest;                 ///< of what is stored
  uint32_t highest;
  const char* when_empty;
  const char* when_out_of_range;
  uint32_t qvn_core_ctrl::*wide_field = nullptr;
  uint32_t factor = 1;         ///< what is stored is the number times this
  bool tolerant = false;       ///< a bad value is told at INFO and does not stop its section
  bool zero_is_unset = false;  ///< a stored 0 leaves the default in use
};

/// What is stored for the value: base-10, times the factor, cut to the field's width.
[[nodiscard]] uint32_t qvn_setting_stored(const qvn_number_setting& setting, const char* value);

/// One key of a section. The tables of them are the sections' handlers and what others may tell
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
};

[[nodiscard]] qvn_conf_section qvn_general_section();
[[nodiscard]] qvn_conf_section qvn_cli_section();

/// The setting of that key, or null.
[[nodiscard]] const qvn_setting* qvn_setting_find(std::span<const qvn_setting> settings,
                                                  const char* key);

/// Reads a value as the setting of that key does; 0 for an unknown key.
[[nodiscard]] int32_t qvn_setting_read(std::span<const qvn_setting> settings, const char* key,
                                       const char* value);

/// Stores a number. 0, or -1, with the setting's NOTICE under the module word `source`, when the
/// value is empty or the stored number out of range; a tolerant setting gives 0 and INFO.
[[nodiscard]] int32_t qvn_conf_read_number(const qvn_number_setting& setting, const char* value,
                                           const char* source);

/// Most characters of a directory.
inline constexpr std::size_t kMostDirectoryCharacters = 197;

/// Stores a directory, cut at 197 characters, with a "/" appended when it has none. 0, or -1 when
/// the value is empty, with `when_empty` as NOTICE under the module word `source`, or when memory
/// runs out, with the directory as it was.
[[nodiscard]] int32_t qvn_conf_read_directory(std::string& directory, const char* value,
                                              const char* when_empty, const char* source);
