/// Bytes that wait for the end of a COPY, in a file of the job's folder that has no name: nothing
/// of it is left however the process ends. The job's worker thread.
///
/// A spool takes all that comes, whatever the disk does: the first failure is remembered, and what
/// comes later is dropped.
#pragma once

#include <string>
#include <string_view>
#include <unistd.h>

#include "db/qvn_job_folder.h"

class cdr_spool {
 public:
  /// The folder must outlive the spool.
  explicit cdr_spool(const qvn_job_folder& folder) : folder_(folder) {}
  cdr_spool(const cdr_spool&) = delete;
  cdr_spool& operator=(const cdr_spool&) = delete;

  /// Appends the bytes to the file, which is made if there is none, and empties the text. Whether
  /// all bytes so far have got there.
  bool take(std::string& bytes);

  /// The error number of the first failure, of making the file or of writing to it; 0 for none.
  [[nodiscard]] int make_error() const { return make_error_; }
  [[nodiscard]] int write_error() const { return write_error_; }

  /// None before something was taken.
  [[nodiscard]] const qvn_fd& file() const { return file_; }

  /// Hands the bytes over in pieces of any size, as std::string_view.
  template <class OnPiece>
  void replay(OnPiece on_piece) const;

 private:
  const qvn_job_folder& folder_;
  qvn_fd file_;
  int make_error_ = 0;
  int write_error_ = 0;
};

template <class OnPiece>
void cdr_spool::replay(OnPiece on_piece) const {
  char piece[16384];
  ssize_t length = 0;
  for (off_t at = 0; (length = pread(file_.get(), piece, sizeof piece, at)) > 0; at += length) {
    on_piece(std::string_view(piece, static_cast<std::size_t>(length)));
  }
}
