#include "support/shell.h"

#include <cstdlib>
#include <sys/wait.h>

#include "support/temp_dir.h"

namespace support {

Ending shell(const std::filesystem::path& folder, const std::string& command) {
  const std::string whole = "cd " + folder.string() +
                            " && export TZ=UTC PATH=" QVN_TOOLS ":$PATH && { " + command +
                            "\n} >.out 2>.err </dev/null";
  const int status = system(whole.c_str());
  return {exit_status(status), read_file(folder / ".out"), read_file(folder / ".err")};
}

int exit_status(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace support
