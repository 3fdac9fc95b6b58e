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

/// Where the line leads to the waiter; null is its end.
qvn_fair_mutex::waiter** qvn_fair_mutex::link_to(const waiter* wanted) {
  waiter** link = &first_;
  while (*link != wanted) {
    link = &(*link)->next;
  }
  return link;
}

/// Takes a lock that is free, or waits in line.
bool qvn_fair_mutex::take_or_join(waiter& self) {
  if (!held_) {
    held_ = true;
    return true;
  }
  *link_to(nullptr) = &self;
  return false;
}

/// Hands the lock to the first in line.
void qvn_fair_mutex::serve_next() {
  held_ = first_ != nullptr;
  if (first_) {
    first_->served = true;
    first_ = first_->next;
    served_.broadcast();
  }
}

/// Takes a waiter out of the line, or hands on what it has been given meanwhile.
void qvn_fair_mutex::leave(const waiter& self) {
  if (self.served) {
    serve_next();
  } else {
    *link_to(&self) = self.next;
  }
}

void qvn_fair_mutex::lock() QVN_NO_THREAD_SAFETY_ANALYSIS {
  const qvn_lock_guard guard(mutex_);
  waiter self;
  self.served = take_or_join(self);
  while (!self.served) {
    served_.wait(mutex_);
  }
}

bool qvn_fair_mutex::lock_while(const std::function<bool()>& still_wanted)
    QVN_NO_THREAD_SAFETY_ANALYSIS {
  constexpr std::chrono::seconds kAskAgain{1};
  const qvn_lock_guard guard(mutex_);
  waiter self;
  self.served = take_or_join(self);
  while (!self.served) {
    if (served_.wait_for(mutex_, kAskAgain) || self.served) {
      continue;
    }
    mutex_.unlock();
    const bool goes_on = still_wanted();
    mutex_.lock();
    if (!goes_on) {
      leave(self);
      return false;
    }
  }
  return true;
}

void qvn_fair_mutex::unlock() QVN_NO_THREAD_SAFETY_ANALYSIS {
  const qvn_lock_guard guard(mutex_);
  serve_next();
}
