#include "base/qvn_shell.h"

#include <cstdlib>

bool qvn_shell(const std::string& command) {
  return std::system(command.c_str()) == 0;
}
