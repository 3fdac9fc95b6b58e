#include <atomic>
#include <gtest/gtest.h>
#include <thread>

#include "db/qvn_job_queue.h"
#include "support/temp_dir.h"

namespace {

using support::wait_until;

std::atomic<int> g_left = 0;

constexpr qvn_job_queue_config kConfig = {"test", "dispatcher", "worker",
                                          [](const qvn_job&) { ++g_left; }};

int32_t admit(const qvn_job&, const qvn_job*, const qvn_job*) {
  return 0;
}

/// Counts how often jobs ran and were freed, and holds them while asked to.
struct probe {
  std::atomic<int> started = 0;
  std::atomic<int> freed = 0;
  std::atomic<bool> hold = true;
};

struct test_job final : qvn_job {
  test_job(probe& watcher, uint32_t number) : watcher_(watcher) { id = number; }
  ~test_job() override { ++watcher_.freed; }
  void run() noexcept override {
    ++watcher_.started;
    watcher_.hold.wait(true);
  }
  probe& watcher_;
};

class job_queue : public testing::Test {
 protected:
  job_queue() { g_left = 0; }
  void release() {
    probe_.hold = false;
    probe_.hold.notify_all();
  }
  int32_t add(uint32_t id, qvn_job_queue::admission_fn admission = admit) {
    return queue_->add(std::make_unique<test_job>(probe_, id), admission);
  }
  bool all_start(int count) {
    return wait_until([&] { return probe_.started == count; });
  }

  probe probe_;
  std::unique_ptr<qvn_job_queue> queue_ = std::make_unique<qvn_job_queue>(kConfig);
};

TEST_F(job_queue, runs_every_job_in_its_own_worker_and_frees_it) {
  ASSERT_EQ(queue_->start(), 0);
  for (uint32_t id = 0; id < 20; ++id) {
    EXPECT_EQ(add(id), 0);
  }
  EXPECT_TRUE(all_start(20));
  EXPECT_EQ(queue_->count(), 20U);
  release();
  EXPECT_TRUE(wait_until([&] { return probe_.freed == 20; }));
  EXPECT_TRUE(wait_until([&] { return queue_->count() == 0; }));
  queue_->stop();
  queue_->stop();
  EXPECT_EQ(g_left, 20);
  qvn_job_queue(kConfig).stop();
}

TEST_F(job_queue, stop_waits_for_running_jobs_and_waiting_ones_are_freed_with_the_queue) {
  ASSERT_EQ(queue_->start(), 0);
  EXPECT_EQ(add(1), 0);
  ASSERT_TRUE(all_start(1));
  std::atomic<bool> stopped = false;
  std::thread stopper([&] {
    queue_->stop();
    stopped = true;
  });
  EXPECT_FALSE(stopped);
  release();
  stopper.join();
  EXPECT_EQ(probe_.freed, 1);
  EXPECT_EQ(add(2), 0);
  EXPECT_EQ(queue_->count(), 1U);
  queue_.reset();
  EXPECT_EQ(probe_.freed, 2);
  EXPECT_EQ(probe_.started, 1);
}

TEST_F(job_queue, admission_sees_the_first_waiting_job_and_the_one_started_last) {
  const auto refuse = [](const qvn_job&, const qvn_job* waiting, const qvn_job* running) {
    return static_cast<int32_t>((waiting ? 10 * waiting->id : 0) + (running ? running->id : 0));
  };
  EXPECT_EQ(add(1), 0);
  EXPECT_EQ(add(2), 0);
  EXPECT_EQ(add(3, refuse), 10);
  EXPECT_EQ(probe_.freed, 1) << "the refused one";
  EXPECT_EQ(queue_->count(), 2U);
  ASSERT_EQ(queue_->start(), 0);
  ASSERT_TRUE(all_start(2));
  EXPECT_EQ(add(3, refuse), 2);
  release();
  queue_->stop();
}

}  // namespace
