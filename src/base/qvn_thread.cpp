#include "base/qvn_thread.h"

#include <array>
#include <cstdio>

#include "base/qvn_sanitizer.h"

namespace {

#if QVN_ADDRESS_SANITIZER || QVN_THREAD_SANITIZER
// Instrumented frames are larger than those that ship.
constexpr std::size_t kDetachedStackSize = 3 * kWorkerStackSize;
#else
constexpr std::size_t kDetachedStackSize = kWorkerStackSize;
#endif

int start_detached(pthread_attr_t* attributes, qvn_thread_routine routine, void* argument) {
  if (const int error = pthread_attr_setdetachstate(attributes, PTHREAD_CREATE_DETACHED)) {
    return error;
  }
  if (const int error = pthread_attr_setstacksize(attributes, kDetachedStackSize)) {
    return error;
  }
  pthread_t thread;
  return pthread_create(&thread, attributes, routine, argument);
}

}  // namespace

int create_detached_thread(qvn_thread_routine routine, void* argument) {
  pthread_attr_t attributes;
  if (const int error = pthread_attr_init(&attributes)) {
    return error;
  }
  const int result = start_detached(&attributes, routine, argument);
  pthread_attr_destroy(&attributes);
  return result;
}

void qvn_thread_set_name(const char* name) {
  std::array<char, 16> kept;
  std::snprintf(kept.data(), kept.size(), "%.15s", name ? name : "");
  pthread_setname_np(pthread_self(), kept.data());
}
