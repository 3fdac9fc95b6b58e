/// The log file, or standard error in its place, and the file's rotation. Opening and closing it is
/// in qvn_log.h; this is what only the logger itself calls.
#pragma once

/// Writes a line and flushes it. The log thread calls it.
void qvn_log_write(const char* text);

/// Where a size check is due: opens a file again that was moved or removed, and rotates one that
/// has grown too large. The log thread calls it.
void qvn_log_check_file();

/// Closes the file, chooses it as the sink, and makes its next size check due.
void qvn_log_reset_file();

/// Releases the file's name: no rotation from now on. Does not close the file.
void qvn_log_forget_file_name();
