#include <atomic>
#include <gtest/gtest.h>
#include <thread>

#include "base/qvn_mutex.h"

namespace {

// The poller's pattern: it gives the lock back and takes it again at once. Whoever waited meanwhile
// must have had it in between. And the fault: whoever left the line took his place in it with him,
// and the lock with it.
TEST(fair_mutex, who_waits_is_served_before_the_owner_locks_again_and_who_leaves_is_passed_over) {
  qvn_fair_mutex mutex;
  std::atomic<int> asked{0};
  std::atomic<bool> leaver_asked{false};
  bool got = false;
  mutex.lock();
  std::thread leaving([&] {
    ASSERT_FALSE(mutex.lock_while([&] {
      leaver_asked = true;
      return false;
    }));
  });
  std::thread staying([&] {
    if (mutex.lock_while([&] { return ++asked > 0; })) {
      got = true;
      mutex.unlock();
    }
  });
  while (!leaver_asked || asked == 0) {
    std::this_thread::yield();
  }
  leaving.join();
  mutex.unlock();
  mutex.lock();
  EXPECT_TRUE(got);
  mutex.unlock();
  staying.join();
}

}  // namespace
