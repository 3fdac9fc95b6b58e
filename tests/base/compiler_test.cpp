// Fault: GCC 12 at -O2 without -fno-ssa-phiopt takes the first loop test of the function below for
// the test before it, runs the body on an empty text and writes past its end. Only the optimised
// binary shows it: builds without optimisation or with sanitizers are right.

#include <gtest/gtest.h>
#include <string>

#include "base/qvn_sanitizer.h"

#ifdef NDEBUG
#error "the texts of assertions are part of what the programs say"
#endif
#if defined(__OPTIMIZE__) && !defined(_FORTIFY_SOURCE) && !QVN_ADDRESS_SANITIZER && \
    !QVN_THREAD_SANITIZER
#error "the C library's checked functions are missing"
#endif

namespace {

[[gnu::noinline]] void mask_first_character(char* p) {
  char c = '0';
  if (*p) {
    c = *p;
  }
  for (; *p; p++) {
    *p = '#';
    if (*p == c) {
      *p = '_';
    }
  }
}

TEST(Compiler, LoopBodyIsNotRunForAnEmptyText) {
  char buffer[] = "\0canary";
  mask_first_character(buffer);
  EXPECT_EQ(std::string(buffer, sizeof(buffer)), std::string("\0canary", sizeof(buffer)));
}

}  // namespace
