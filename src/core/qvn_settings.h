/// The main settings: defaults, the sections `general` and `CLI` of the main configuration file,
/// and the check before the modules start. Main thread, before any other thread but the log's.
///
/// A bad value is reported and stays stored all the same; the keys after it in its section are not
/// read, and the load as a whole still succeeds.
#pragma once

#include <cstdint>
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

/// A 16-bit number of any section, with its range and its messages.
struct qvn_number_setting {
  uint16_t qvn_core_ctrl::*field;
  uint16_t lowest;
  uint16_t highest;
  const char* when_empty;
  const char* when_out_of_range;
};

/// Stores a base-10 number, cut to 16 bits. 0, or -1, with the setting's NOTICE under the module
/// word `source`, when the value is empty or the stored number out of range.
[[nodiscard]] int32_t qvn_conf_read_number(const qvn_number_setting& setting, const char* value,
                                           const char* source);

/// Stores a directory, cut at 197 characters, with a "/" appended when it has none. 0, or -1 when
/// the value is empty, with `when_empty` as NOTICE under the module word `source`, or when memory
/// runs out, with the directory as it was.
[[nodiscard]] int32_t qvn_conf_read_directory(std::string& directory, const char* value,
                                              const char* when_empty, const char* source);
