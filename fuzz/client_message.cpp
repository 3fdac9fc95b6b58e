/// The client's reader: a line whose bytes are the sizes of the server's sends, then the stream.
///
/// The client's reading of its socket is a function of its source file alone, so that is
/// included.

#include "cli/qvn_cli_client.cpp"  // NOLINT(bugprone-suspicious-include)
#include "line_streams.h"
#include "support.h"

namespace {

std::string* const g_printed = new std::string;
int g_server = -1;  ///< the other end of the client's socket

void keep_printed(std::string_view piece) {
  *g_printed += piece;
}

}  // namespace

void fuzz_prepare() {
  FUZZ_CHECK(qvn_cli_client_init() == 0);
  int ends[2];
  FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
  g_cli_client_ctrl->fd.reset(ends[0]);
  g_server = ends[1];
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz_input input(data, size);
  const std::vector<std::string> sends = checked_reads(input, kSessionLimits, kSessionReadSize);

  g_printed->clear();
  std::FILE* const terminal = std::exchange(stdout, fuzz_open_writer(keep_printed));
  g_cli_client_ctrl->buffer.clear();
  for (const std::string& bytes : sends) {
    FUZZ_CHECK(send(g_server, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    FUZZ_CHECK(cli_client_msg_proc());
  }
  (void)std::fclose(std::exchange(stdout, terminal));

  std::string expected;
  for (auto& [valid, line] : expected_events(sends, kSessionLimits)) {
    qvn_mask_controls(line, "\t\r\n");
    expected += valid ? line + "\n" : "Receive invalid msg [" + line + "]\n";
  }
  FUZZ_CHECK(*g_printed == expected);
  return 0;
}
