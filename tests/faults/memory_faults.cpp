// Preloaded into the daemon: counts its allocations and makes some of them fail, as the table that
// the test shares with it says. Mappings count where the program itself asks for them: a thread's
// stack is the library's affair.
#include "faults/memory_faults.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* block);
}

namespace {

using main_fn = int (*)(int, char**, char**);

MemoryFaults* g_faults = nullptr;
main_fn g_main = nullptr;
pthread_key_t g_end_key;

// In the library's own static block, so that reading them never allocates.
thread_local __attribute__((tls_model("initial-exec"))) char t_name[16] = "main";
thread_local __attribute__((tls_model("initial-exec"))) MemoryTarget* t_target = nullptr;
thread_local __attribute__((tls_model("initial-exec"))) uint32_t t_version = 0;

thread_local __attribute__((tls_model("initial-exec"))) bool t_creates_thread = false;

MemoryTarget* find_target() {
  const size_t word = strcspn(t_name, " ");
  for (MemoryTarget& target : g_faults->targets) {
    if (strcmp(target.thread, t_name) == 0 ||
        (strlen(target.thread) == word && strncmp(target.thread, t_name, word) == 0))
      return &target;
  }
  return nullptr;
}

MemoryTarget* this_target() {
  const uint32_t version = g_faults->version;
  if (version != t_version) {
    t_version = version;
    t_target = find_target();
  }
  return t_target;
}

/// Counts one allocation; whether it is to fail.
bool fails() {
  MemoryTarget* const target = g_faults == nullptr ? nullptr : this_target();
  if (target == nullptr)
    return false;
  const uint32_t number = ++target->seen;
  const uint32_t fail_at = target->fail_at;
  if (fail_at == 0 || number < fail_at || (number > fail_at && !target->from_then_on))
    return false;
  target->failed++;
  errno = ENOMEM;
  return true;
}

void* taken(void* block) {
  // What belongs to a thread is kept with its stack for the next one.
  if (g_faults != nullptr && block != nullptr && !t_creates_thread) {
    g_faults->live_bytes += static_cast<int64_t>(malloc_usable_size(block));
    g_faults->live_blocks++;
  }
  return block;
}

void give_back(void* block) {
  if (g_faults != nullptr && block != nullptr) {
    g_faults->live_bytes -= static_cast<int64_t>(malloc_usable_size(block));
    g_faults->live_blocks--;
  }
}

void next_count() {
  MemoryTarget* const target = g_faults == nullptr ? nullptr : this_target();
  if (target != nullptr && target->step > 0) {
    target->fail_at += target->step;
    target->seen = 0;
  }
}

int64_t whole_pages(size_t size) {
  return static_cast<int64_t>((size + 4095) & ~size_t{4095});
}

template <class Function>
Function next_of(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

/// The libraries' own beginnings are not the daemon's: counting starts here.
int counted_main(int count, char** words, char** environment) {
  const char* const path = getenv("QVN_MEMORY_FAULTS");
  const int file = path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
  void* const table =
      file < 0 ? MAP_FAILED
               : mmap(nullptr, sizeof(MemoryFaults), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (table == MAP_FAILED)
    abort();
  close(file);
  unsetenv("LD_PRELOAD");  // not for the shells that the daemon starts
  pthread_key_create(&g_end_key, [](void* target) { static_cast<MemoryTarget*>(target)->ended++; });
  // The first message of that library takes memory for good.
  (void)next_of<const char* (*)(void*)>("PQerrorMessage")(nullptr);
  g_faults = static_cast<MemoryFaults*>(table);
  return g_main(count, words, environment);
}

}  // namespace

extern "C" {

int __libc_start_main(main_fn main, int count, char** words, void (*init)(), void (*fini)(),
                      void (*rtld_fini)(), void* stack_end) {
  g_main = main;
  return next_of<decltype(&__libc_start_main)>("__libc_start_main")(
      counted_main, count, words, init, fini, rtld_fini, stack_end);
}

void* malloc(size_t size) {
  return fails() ? nullptr : taken(__libc_malloc(size));
}

void* calloc(size_t count, size_t size) {
  return fails() ? nullptr : taken(__libc_calloc(count, size));
}

void* realloc(void* block, size_t size) {
  if (fails())
    return nullptr;
  give_back(block);
  void* const moved = __libc_realloc(block, size);
  taken(moved == nullptr && size > 0 ? block : moved);
  return moved;
}

void* aligned_alloc(size_t alignment, size_t size) {
  return fails() ? nullptr : taken(__libc_memalign(alignment, size));
}

void* memalign(size_t alignment, size_t size) {
  return aligned_alloc(alignment, size);
}

int posix_memalign(void** block, size_t alignment, size_t size) {
  void* const taken_block = aligned_alloc(alignment, size);
  if (taken_block == nullptr)
    return ENOMEM;
  *block = taken_block;
  return 0;
}

void free(void* block) {
  give_back(block);
  __libc_free(block);
}

void* mmap(void* address, size_t length, int protection, int flags, int file, off_t offset) {
  if ((flags & MAP_ANONYMOUS) != 0 && fails())
    return MAP_FAILED;
  void* const region =
      reinterpret_cast<void*>(syscall(SYS_mmap, address, length, protection, flags, file, offset));
  if (region != MAP_FAILED && g_faults != nullptr)
    g_faults->live_bytes += whole_pages(length);
  return region;
}

int munmap(void* address, size_t length) noexcept {
  const int result = static_cast<int>(syscall(SYS_munmap, address, length));
  if (result == 0 && g_faults != nullptr)
    g_faults->live_bytes -= whole_pages(length);
  return result;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                   void* argument) {
  static const auto create = next_of<decltype(&pthread_create)>("pthread_create");
  t_creates_thread = true;
  const int result = create(thread, attributes, routine, argument);
  t_creates_thread = false;
  return result;
}

/// The daemon's threads name themselves.
int pthread_setname_np(pthread_t, const char* name) {
  prctl(PR_SET_NAME, name);
  if (g_faults == nullptr)
    return 0;
  strncpy(t_name, name, sizeof t_name - 1);
  t_version = g_faults->version;
  t_target = find_target();
  if (t_target != nullptr) {
    t_target->begun++;
    pthread_setspecific(g_end_key, t_target);
  }
  return 0;
}

/// Every visit of the poller ends with it, or here when there is no connection to finish.
struct pg_conn* PQconnectdb(const char* settings) {
  static const auto connect = next_of<pg_conn* (*)(const char*)>("PQconnectdb");
  pg_conn* const connection = connect(settings);
  if (connection == nullptr)
    next_count();
  return connection;
}

void PQfinish(struct pg_conn* connection) {
  static const auto finish = next_of<void (*)(pg_conn*)>("PQfinish");
  finish(connection);
  next_count();
}

/// Only the run loop waits for nothing.
int ppoll(pollfd* entries, nfds_t count, const timespec* patience, const sigset_t* mask) {
  if (g_faults != nullptr && count == 0)
    g_faults->running = true;
  static const auto wait =
      next_of<int (*)(pollfd*, nfds_t, const timespec*, const sigset_t*)>("ppoll");
  return wait(entries, count, patience, mask);
}

}  // extern "C"
