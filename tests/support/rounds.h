/// How long the tests that repeat themselves go on.
#pragma once

#include <cstdlib>

namespace support {

/// $QVN_ROUNDS, which scripts/endure sets for the long forms, or `rounds` where there is none.
inline int rounds_or(int rounds) {
  const char* asked = getenv("QVN_ROUNDS");
  return asked == nullptr ? rounds : atoi(asked);
}

}  // namespace support
