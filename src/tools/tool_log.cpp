#include "tools/tool_log.h"

#include <chrono>
#include <sys/socket.h>
#include <unistd.h>

#include "base/qvn_log.h"
#include "base/qvn_text.h"

tool_log::tool_log() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) {
    return;
  }
  in_ = qvn_fd(ends[0]);
  out_ = qvn_fd(ends[1]);
  (void)qvn_log_init();
  (void)qvn_log_add_bind_logger(in_.get(), kLogWarning);
}

tool_log::~tool_log() {
  qvn_log_exit();
  qvn_log_uninit();  // forgets the bound socket
}

std::string tool_log::take() {
  constexpr std::chrono::seconds kLongestWait{1};
  (void)qvn_log_drain(kLongestWait);
  std::string text;
  char piece[4096];
  for (ssize_t size = 0; (size = read(out_.get(), piece, sizeof piece)) > 0;) {
    text.append(piece, static_cast<std::size_t>(size));
  }
  qvn_mask_controls(text, "\t\n");
  return text;
}
