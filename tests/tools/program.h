/// Runs the check tools as a user does, in a folder of their own.
#pragma once

#include <string>

#include "support/daemon_harness.h"
#include "support/temp_dir.h"

namespace tools {

/// Runs a shell command in the folder, with the programs in its PATH and UTC as local time.
support::Ending run(const support::TempDir& folder, const std::string& command);

}  // namespace tools
