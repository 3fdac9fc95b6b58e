#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

#include "base/qvn_mutex.h"

namespace {

using namespace std::chrono_literals;

// The poller's pattern: it gives the lock back and takes it again at once. Whoever waited meanwhile
// must have had it in between. The owner sees that the other thread is about to ask, not that it is
// in the queue already, hence the tolerance; with an unfair lock the owner wins nearly every round.
TEST(FairMutex, AWaitingThreadIsServedBeforeTheOwnerLocksAgain) {
  constexpr int kTurns = 200;
  qvn_fair_mutex mutex;
  std::atomic<bool> asks{false};
  std::atomic<int> served{0};
  std::thread waiter([&] {
    for (int turn = 0; turn < kTurns; ++turn) {
      asks = true;
      const qvn_lock_guard guard(mutex);
      asks = false;
      ++served;
    }
  });
  int overtaken = 0;
  while (served < kTurns) {
    mutex.lock();
    while (!asks && served < kTurns) {
      std::this_thread::yield();
    }
    const auto surely_queued = std::chrono::steady_clock::now() + 200us;
    while (std::chrono::steady_clock::now() < surely_queued) {
      std::this_thread::yield();
    }
    const int before = served;
    mutex.unlock();
    mutex.lock();
    overtaken += served == before && before < kTurns ? 1 : 0;
    mutex.unlock();
  }
  waiter.join();
  EXPECT_LT(overtaken, kTurns / 4);
}

// The fault: whoever left the line took his place in it with him, and the lock with it.
TEST(FairMutex, WhoeverLeavesTheLineKeepsNobodyWaiting) {
  qvn_fair_mutex mutex;
  std::atomic<int> served{0};
  std::atomic<bool> asked{false};
  bool got = false;
  mutex.lock();
  std::thread leaving([&] {
    ASSERT_FALSE(mutex.lock_while([&] {
      asked = true;
      return false;
    }));
  });
  std::thread staying([&] {
    if (mutex.lock_while([&] { return ++served > 0; })) {
      got = true;
      mutex.unlock();
    }
  });
  while (!asked || served == 0) {
    std::this_thread::yield();
  }
  leaving.join();
  mutex.unlock();
  staying.join();
  EXPECT_TRUE(got);
}

}  // namespace
