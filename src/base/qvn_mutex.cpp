#include "base/qvn_mutex.h"

#include <ctime>

bool qvn_condition::wait_for(qvn_mutex& mutex, std::chrono::nanoseconds timeout) {
  constexpr long kNanosecondsPerSecond = 1'000'000'000;
  timespec deadline{};
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  const auto total = deadline.tv_nsec + timeout.count();
  deadline.tv_sec += total / kNanosecondsPerSecond;
  deadline.tv_nsec = total % kNanosecondsPerSecond;
  return pthread_cond_clockwait(&handle_, &mutex.handle_, CLOCK_MONOTONIC, &deadline) == 0;
}

void qvn_fair_mutex::lock() QVN_NO_THREAD_SAFETY_ANALYSIS {
  const qvn_lock_guard guard(mutex_);
  const unsigned long ticket = next_ticket_++;
  while (turn_ != ticket) {
    turn_changed_.wait(mutex_);
  }
}

void qvn_fair_mutex::unlock() QVN_NO_THREAD_SAFETY_ANALYSIS {
  const qvn_lock_guard guard(mutex_);
  ++turn_;
  turn_changed_.broadcast();
}
