#include "rerate/cdr_spool.h"

#include <cerrno>

bool cdr_spool::take(std::string& bytes) {
  if (!file_.is_open() && make_error_ == 0) {
    file_ = folder_.make_unnamed();
    make_error_ = file_.is_open() ? 0 : errno;
  }
  if (make_error_ == 0 && write_error_ == 0 && !qvn_fd_write(file_, bytes)) {
    write_error_ = errno;
  }
  bytes.clear();
  return make_error_ == 0 && write_error_ == 0;
}
