/// One way to start a program and wait for its end.
#pragma once

#include <filesystem>
#include <string>

namespace support {

/// How a process ended and what it said.
struct Ending {
  int status = -1;  ///< exit status, or minus the signal that ended it
  std::string out;
  std::string err;
};

/// Runs a shell command in the folder, with the check tools in its PATH and UTC as local time. What
/// it says lies in the folder's files ".out" and ".err".
Ending shell(const std::filesystem::path& folder, const std::string& command);

/// Options by which the sanitizers write their reports to files "sanitizer.PID" of the folder.
std::string sanitizer_options(const std::filesystem::path& folder);

/// The exit status of what waitpid() has seen end, or minus the signal.
int exit_status(int status);

}  // namespace support
