/// Bytes that wait for the end of a COPY, in a file of the job's folder that has no name: nothing
/// of it is left however the process ends. The job's worker thread.
///
/// A spool takes all that comes, whatever the disk does: the first failure is remembered, and what
/// comes later is dropped.
#pragma once

#include <string>
#include <string_view>

#include "base/qvn_function_ref.h"
#include "db/qvn_job_folder.h"

class cdr_spool {
 public:
  /// The folder must outlive the spool.
  explicit cdr_spool(const qvn_job_folder& folder) : folder_(folder) {}

  /// Appends the bytes to the file, which is made if there is none, and empties the text.
  void take(std::string& bytes);

  /// The error number of the first failure, of making the file, of writing to it or of either; 0
  /// for none.
  [[nodiscard]] int make_error() const { return make_error_; }
  [[nodiscard]] int write_error() const { return write_error_; }
  [[nodiscard]] int error() const { return make_error_ != 0 ? make_error_ : write_error_; }

  /// None before something was taken.
  [[nodiscard]] const qvn_fd& file() const { return file_; }

  /// Hands the bytes over in pieces of any size.
  void replay(qvn_function_ref<void(std::string_view)> on_piece) const;

 private:
  const qvn_job_folder& folder_;
  qvn_fd file_;
  int make_error_ = 0;
  int write_error_ = 0;
};
