#include "tools/program.h"

#include <cstdlib>
#include <sys/wait.h>

namespace tools {

support::Ending run(const support::TempDir& folder, const std::string& command) {
  const std::string whole = "cd " + folder.path().string() +
                            " && export TZ=UTC PATH=" QVN_TOOLS ":$PATH && { " + command +
                            "; } >.out 2>.err </dev/null";
  const int status = std::system(whole.c_str());
  support::Ending ending;
  ending.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  ending.out = support::read_file(folder.path() / ".out");
  ending.err = support::read_file(folder.path() / ".err");
  return ending;
}

}  // namespace tools
