#include "rerate/cdr_spool.h"

#include <cerrno>
#include <unistd.h>

void cdr_spool::take(std::string& bytes) {
  if (!file_.is_open() && make_error_ == 0) {
    file_ = folder_.make_unnamed();
    make_error_ = file_.is_open() ? 0 : errno;
  }
  if (error() == 0 && !qvn_fd_write(file_, bytes)) {
    write_error_ = errno;
  }
  bytes.clear();
}

void cdr_spool::replay(qvn_function_ref<void(std::string_view)> on_piece) const {
  char piece[16384];
  ssize_t length = 0;
  for (off_t at = 0; (length = pread(file_.get(), piece, sizeof piece, at)) > 0; at += length) {
    on_piece(std::string_view(piece, static_cast<std::size_t>(length)));
  }
}
