/// How long the tests that repeat themselves go on, and with which random numbers.
#pragma once

#include <cstdlib>
#include <random>

namespace support {

/// $QVN_ROUNDS, which scripts/endure sets for the long forms, or `rounds` where there is none.
inline int rounds_or(int rounds) {
  const char* asked = getenv("QVN_ROUNDS");
  return asked == nullptr ? rounds : atoi(asked);
}

/// $QVN_SEED, or another one each time; a test prints it.
inline unsigned seed() {
  const char* asked = getenv("QVN_SEED");
  return asked == nullptr ? std::random_device{}() : static_cast<unsigned>(atol(asked));
}

}  // namespace support
