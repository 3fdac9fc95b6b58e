/// What the daemon made of one section of a configuration file.
#pragma once

#include <span>

#include "core/qvn_settings.h"
#include "tools/conf_findings.h"
#include "tools/conf_record.h"

/// Reports every line of a reading that the daemon ignored, refused, cut or took as something else.
/// A value is never shown, but for a number and the target of a reference, and not even these when
/// the setting is secret. `sections` are those of the file, where an unknown key may belong.
void conf_check_section(const recorded_reading& reading, std::span<const qvn_setting> settings,
                        std::span<const qvn_conf_section> sections, conf_findings& findings);

/// The line whose value ended the reading of the section, or 0.
[[nodiscard]] int conf_stopping_line(const recorded_reading& reading);
