/// Locks that clang's thread-safety analysis checks, and that need no destructor.
///
/// The daemon ends inside its SIGTERM handler while other threads still run, so no lock or
/// condition may be torn down at exit. The types below are constant-initialised and trivially
/// destructible, and they may stand at namespace scope. The annotations are empty for GCC; CI
/// builds with clang and takes their warnings as errors.
#pragma once

#include <chrono>
#include <functional>
#include <pthread.h>

#if defined(__clang__)
#define QVN_ANNOTATE(x) __attribute__((x))
#else
#define QVN_ANNOTATE(x)
#endif

#define QVN_CAPABILITY(name) QVN_ANNOTATE(capability(name))
#define QVN_SCOPED_CAPABILITY QVN_ANNOTATE(scoped_lockable)
#define QVN_GUARDED_BY(lock) QVN_ANNOTATE(guarded_by(lock))
#define QVN_REQUIRES(...) QVN_ANNOTATE(requires_capability(__VA_ARGS__))
#define QVN_EXCLUDES(...) QVN_ANNOTATE(locks_excluded(__VA_ARGS__))
#define QVN_ACQUIRE(...) QVN_ANNOTATE(acquire_capability(__VA_ARGS__))
#define QVN_TRY_ACQUIRE(...) QVN_ANNOTATE(try_acquire_capability(__VA_ARGS__))
#define QVN_RELEASE(...) QVN_ANNOTATE(release_capability(__VA_ARGS__))
#define QVN_NO_THREAD_SAFETY_ANALYSIS QVN_ANNOTATE(no_thread_safety_analysis)

/// A mutex. Not recursive.
class QVN_CAPABILITY("mutex") qvn_mutex {
 public:
  constexpr qvn_mutex() = default;
  qvn_mutex(const qvn_mutex&) = delete;
  qvn_mutex& operator=(const qvn_mutex&) = delete;

  void lock() QVN_ACQUIRE() { pthread_mutex_lock(&handle_); }
  void unlock() QVN_RELEASE() { pthread_mutex_unlock(&handle_); }

 private:
  friend class qvn_condition;
  pthread_mutex_t handle_ = PTHREAD_MUTEX_INITIALIZER;
};

/// A condition variable. Waits are measured on the monotonic clock, so a stepped wall clock neither
/// prolongs nor cuts them.
class qvn_condition {
 public:
  constexpr qvn_condition() = default;
  qvn_condition(const qvn_condition&) = delete;
  qvn_condition& operator=(const qvn_condition&) = delete;

  /// Waits with `mutex` held by the caller until signalled, or spuriously, or until `timeout` is
  /// over. Returns false on the timeout.
  bool wait_for(qvn_mutex& mutex, std::chrono::nanoseconds timeout) QVN_REQUIRES(mutex);
  void wait(qvn_mutex& mutex) QVN_REQUIRES(mutex) { pthread_cond_wait(&handle_, &mutex.handle_); }
  void signal() { pthread_cond_signal(&handle_); }
  void broadcast() { pthread_cond_broadcast(&handle_); }

 private:
  pthread_cond_t handle_ = PTHREAD_COND_INITIALIZER;
};

/// A lock that serves waiting threads in the order in which they asked for it. The poller takes the
/// database list lock again and again; with this lock a console command or a finishing job that
/// waits is served before the poller's next cycle. Not recursive.
class QVN_CAPABILITY("mutex") qvn_fair_mutex {
 public:
  void lock() QVN_ACQUIRE();
  void unlock() QVN_RELEASE();

  /// As lock(), but asks `still_wanted` once a second while it waits, with nothing held. False,
  /// without the lock, when the answer was no.
  [[nodiscard]] bool lock_while(const std::function<bool()>& still_wanted) QVN_TRY_ACQUIRE(true);

 private:
  /// One that waits, on its own stack.
  struct waiter {
    bool served = false;  ///< the lock is its own
    waiter* next = nullptr;
  };

  waiter** link_to(const waiter* wanted) QVN_REQUIRES(mutex_);
  bool take_or_join(waiter& self) QVN_REQUIRES(mutex_);
  void serve_next() QVN_REQUIRES(mutex_);
  void leave(const waiter& self) QVN_REQUIRES(mutex_);

  qvn_mutex mutex_;
  qvn_condition served_;
  bool held_ QVN_GUARDED_BY(mutex_) = false;
  waiter* first_ QVN_GUARDED_BY(mutex_) = nullptr;  ///< waits longest
};

struct qvn_is_held {};

/// Holds a lock for the length of a scope.
template <class Lock>
class QVN_SCOPED_CAPABILITY qvn_lock_guard {
 public:
  explicit qvn_lock_guard(Lock& lock) QVN_ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
  /// Takes over a lock that the caller holds.
  qvn_lock_guard(Lock& lock, qvn_is_held /*held*/) QVN_REQUIRES(lock) : lock_(lock) {}
  ~qvn_lock_guard() QVN_RELEASE() { lock_.unlock(); }
  qvn_lock_guard(const qvn_lock_guard&) = delete;
  qvn_lock_guard& operator=(const qvn_lock_guard&) = delete;

 private:
  Lock& lock_;
};
