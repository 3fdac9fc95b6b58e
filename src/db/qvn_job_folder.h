/// The folder of a job's result files: root/date/label/job id/, shared with the portal's own user.
///
/// Every local user may write to it once a job of that number has ended there, so nothing in it is
/// trusted: a name may lead to any file of the system, to a pipe, or elsewhere than a moment ago.
/// The folder is opened once, and files are made and opened below it. The job's worker thread.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "base/qvn_fd.h"
#include "db/qvn_job_queue.h"

struct qvn_job_file_close {
  void operator()(std::FILE* file) const noexcept;
};

/// An open result file. When it is closed everyone may read, correct and remove it.
using qvn_job_file = std::unique_ptr<std::FILE, qvn_job_file_close>;

/// Closes the file; 0, or the error number when not all that was written has reached it.
[[nodiscard]] int qvn_job_file_finish(qvn_job_file file);

class qvn_job_folder {
 public:
  qvn_job_folder() = default;

  /// Opens a folder that is there; `path` ends in "/".
  explicit qvn_job_folder(std::string path);

  /// Makes the job's folder below `root`, which ends in "/", under today's date in UTC, and opens
  /// it. Its path is empty when the date is not known. A folder that could not be made or opened
  /// shows when files are created in it. Throws std::bad_alloc when memory runs out.
  [[nodiscard]] static qvn_job_folder make(const std::string& root, const qvn_job& job);

  /// With a trailing "/"; empty until the folder was made.
  [[nodiscard]] const std::string& path() const { return path_; }

  /// Makes an empty file in place of whatever has that name. Null, with errno, on failure.
  [[nodiscard]] qvn_job_file create(const char* name) const;

  /// A file without a name, to be written and read; it is gone when it is closed. None, with errno,
  /// on failure.
  [[nodiscard]] qvn_fd make_unnamed() const;

  /// Gives an unnamed file of the folder its name, so that it appears whole, and lets everyone
  /// read, correct and remove it. False, with errno, on failure: EEXIST when the name is taken.
  [[nodiscard]] bool give_name(const qvn_fd& unnamed, const char* name) const;

  /// Opens the file of that name for appending, and for everyone. It must be a plain file (else
  /// EPERM, ELOOP, EISDIR) of the daemon's own user (else EPERM) without a second name (else
  /// EMLINK). None, with errno, on failure: ENOENT when there is none.
  [[nodiscard]] qvn_fd open_own(const char* name) const;

  /// Lets everyone add and remove files; nothing without a folder, or when it is another user's.
  void open_to_all() const;

 private:
  [[nodiscard]] bool may_hold(const char* name) const;

  std::string path_;
  qvn_fd folder_;
  int error_ = 0;  ///< why `folder_` is not open
};
