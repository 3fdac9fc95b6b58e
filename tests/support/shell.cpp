#include "support/shell.h"

#include <cstdlib>
#include <sys/wait.h>

#include "support/temp_dir.h"

namespace support {

Ending shell(const std::filesystem::path& folder, const std::string& command) {
  const std::string whole =
      "cd " + folder.string() + " && export TZ=UTC PATH=" QVN_TOOLS ":$PATH && " +
      "for name in ASAN TSAN UBSAN; do eval export ${name}_OPTIONS=\\$${name}_OPTIONS:" +
      sanitizer_options(folder) + "; done && { " + command + "\n} >.out 2>.err </dev/null";
  const int status = system(whole.c_str());
  return {exit_status(status), read_file(folder / ".out"), read_file(folder / ".err")};
}

/// The handler of SIGTERM runs only while the main thread waits and holds nothing, so what it calls
/// need not be safe in any signal handler.
std::string sanitizer_options(const std::filesystem::path& folder) {
  return "report_signal_unsafe=0:log_path=" + (folder / "sanitizer").string();
}

int exit_status(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace support
