/// What the daemon made of one section of a configuration file.
#pragma once

#include <set>
#include <span>
#include <string>

#include "base/qvn_conf_setting.h"
#include "tools/conf_findings.h"
#include "tools/conf_layout.h"

/// What a section is compared with.
struct conf_known {
  std::span<const qvn_setting> settings;       ///< its own
  std::span<const qvn_conf_section> sections;  ///< of the file, where an unknown key may belong
  const std::set<std::string>& references;     ///< for which an unknown key may stand there
};

/// Reports every line of a reading that the daemon ignored, refused, cut or took as something else.
/// A value is never shown as it is used, but for a number; of others at most what is written, and
/// not even that when the setting is secret.
void conf_check_section(const recorded_reading& reading, const conf_known& known,
                        conf_findings& findings);
