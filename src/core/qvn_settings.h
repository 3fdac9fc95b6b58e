/// The main settings: defaults, the sections `general` and `CLI` of the main configuration file,
/// and the check before the modules start. Main thread, before any other thread but the log's.
#pragma once

#include <cstdint>

#include "base/qvn_conf_setting.h"

/// Sets the defaults of the console and of the job limits. Returns 0.
int32_t qvn_default_conf_init();

/// Reads both sections. 0, or -1 when the file cannot be opened.
[[nodiscard]] int32_t qvn_load_config();

/// Reads the section `CLI` alone, without defaults: all that the console client needs.
[[nodiscard]] int32_t qvn_load_cli_config();

/// Reads one section of the main configuration file. 0, or -1 when it cannot be opened.
[[nodiscard]] int32_t qvn_load_section(const qvn_conf_section& section);

/// 0 when the console listen address is set; else -1, with a NOTICE.
[[nodiscard]] int32_t qvn_check_config();

/// Handlers of the two sections: 0 to go on, -1, with a NOTICE, to stop the section.
int32_t read_general_config(const char* key, const char* value);
int32_t read_cli_config(const char* key, const char* value);

[[nodiscard]] qvn_conf_section qvn_general_section();
[[nodiscard]] qvn_conf_section qvn_cli_section();
