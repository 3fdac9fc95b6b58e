/// Shell commands: the few places where the daemon lets the system's tools work on files and
/// processes.
#pragma once

#include <string>

/// Runs the command and waits for it. Any thread. Returns whether it ended with status 0; a command
/// that cannot be run at all counts as failed, without a message.
bool qvn_shell(const std::string& command);
