// Linked into the test, and preloaded into daemons whose start is to find no memory: there the
// allocation of the main thread whose number is $QVN_FAIL_AT fails before the run loop, and with
// a "+" after the number all that follow it up to there.
#include "faults/memory_faults.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void __libc_free(void* block);
}

constinit thread_local memory_shortage* t_memory_shortage = nullptr;
std::atomic<memory_shortage*> g_memory_shortage_of_threads = nullptr;
std::atomic<int64_t> g_memory_held = 0;

namespace {

/// In place of a thread's own while it makes another one.
constinit memory_shortage g_of_new_thread;

constinit memory_shortage g_at_start;
std::atomic<bool> g_lacks_thread = false;

[[gnu::constructor]] void begin_start() {
  if (const char* const number = getenv("QVN_FAIL_AT")) {
    g_at_start.left = atoi(number);
    g_at_start.from_then_on = strchr(number, '+') != nullptr;
    unsetenv("LD_PRELOAD");  // not for the shells that the daemon starts
    t_memory_shortage = &g_at_start;
  }
}

/// Counts one allocation; whether it is to fail.
bool fails() {
  memory_shortage* const own = t_memory_shortage;
  if (!own || own->left <= 0 || --own->left > 0) {
    return false;
  }
  own->left = own->from_then_on ? 1 : 0;
  ++own->failed;
  errno = ENOMEM;
  return true;
}

void* taken(void* block) {
  g_memory_held += block && t_memory_shortage != &g_of_new_thread ? 1 : 0;
  return block;
}

}  // namespace

extern "C" {

void* malloc(size_t size) {
  return fails() ? nullptr : taken(__libc_malloc(size));
}

void* calloc(size_t count, size_t size) {
  return fails() ? nullptr : taken(__libc_calloc(count, size));
}

void* realloc(void* block, size_t size) {
  if (fails()) {
    return nullptr;
  }
  g_memory_held -= block ? 1 : 0;
  return taken(__libc_realloc(block, size));
}

void free(void* block) {
  g_memory_held -= block ? 1 : 0;
  __libc_free(block);
}

void* mmap(void* address, size_t length, int protection, int flags, int file, off_t offset) {
  if ((flags & MAP_ANONYMOUS) != 0 && fails()) {
    return MAP_FAILED;
  }
  g_memory_held += static_cast<int64_t>(length / 4096);
  return reinterpret_cast<void*>(
      syscall(SYS_mmap, address, length, protection, flags, file, offset));
}

int munmap(void* address, size_t length) noexcept {
  g_memory_held -= static_cast<int64_t>(length / 4096);
  return static_cast<int>(syscall(SYS_munmap, address, length));
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                   void* argument) {
  static const auto next =
      reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  if (fails()) {
    g_lacks_thread = true;
    return EAGAIN;
  }
  memory_shortage* const own = std::exchange(t_memory_shortage, &g_of_new_thread);
  const int result = next(thread, attributes, routine, argument);
  t_memory_shortage = own;
  return result;
}

int pthread_setname_np(pthread_t /*thread*/, const char* name) {
  t_memory_shortage = g_memory_shortage_of_threads;
  return prctl(PR_SET_NAME, name);
}

/// libpq without memory for a message waits for more of it, and whoever called it looks again after
/// a second: here sooner, and then there is memory again.
int poll(pollfd* entries, nfds_t count, int patience) {
  memory_shortage* const own = t_memory_shortage;
  const int most = own && own->failed > 0 && patience > 100 ? 100 : patience;
  const auto result = static_cast<int>(syscall(SYS_poll, entries, count, most));
  if (result == 0 && most < patience) {
    own->left = 0;
  }
  return result;
}

/// Only the run loop waits that way; standard error shows whether it was reached as ever.
int ppoll(pollfd* entries, nfds_t count, const timespec* patience, const sigset_t* mask) {
  if (std::exchange(t_memory_shortage, nullptr) == &g_at_start) {
    dprintf(STDERR_FILENO, "runs %s\n",
            g_at_start.failed == 0 ? "as ever"
            : g_lacks_thread       ? "without a thread"
                                   : "after all");
  }
  timespec left = *patience;
  return static_cast<int>(syscall(SYS_ppoll, entries, count, &left, mask, _NSIG / 8));
}

}  // extern "C"
