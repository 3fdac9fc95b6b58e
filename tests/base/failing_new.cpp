#include "base/failing_new.h"

#include <cstddef>
#include <new>

namespace {

thread_local int allocations_until_failure = 0;
thread_local bool has_failed = false;

bool this_one_fails() {
  if (allocations_until_failure == 0 || --allocations_until_failure > 0) {
    return false;
  }
  has_failed = true;
  return true;
}

}  // namespace

void fail_nothrow_new(int nth) {
  allocations_until_failure = nth;
  has_failed = false;
}

bool nothrow_new_has_failed() {
  allocations_until_failure = 0;
  return has_failed;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return this_one_fails() ? nullptr : ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return this_one_fails() ? nullptr : ::operator new[](size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
