#include "db/qvn_job_queue.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/qvn_log.h"
#include "base/qvn_thread.h"

namespace {

/// How long the dispatcher sleeps at most before it looks at the exit flag again.
constexpr std::chrono::seconds kDispatcherPause{1};

}  // namespace

uint32_t qvn_job_queue::count() {
  const qvn_lock_guard guard(mutex_);
  return static_cast<uint32_t>(running_.size() + waiting_.size());
}

int32_t qvn_job_queue::add(std::unique_ptr<qvn_job> job, admission_fn admission) {
  const auto first = [](const job_list& jobs) {
    return jobs.empty() ? nullptr : jobs.front().get();
  };
  const qvn_lock_guard guard(mutex_);
  const int32_t verdict = admission(*job, first(waiting_), first(running_));
  if (verdict == 0) {
    job->queue_ = this;
    waiting_.push_back(std::move(job));
    changed_.broadcast();
  }
  return verdict;
}

int32_t qvn_job_queue::start() {
  const int result = pthread_create(&dispatcher_, nullptr, dispatcher_main, this);
  dispatcher_started_ = result == 0;
  return result;
}

void qvn_job_queue::stop() {
  exiting_ = true;
  {
    const qvn_lock_guard guard(mutex_);
    changed_.broadcast();
  }
  if (dispatcher_started_) {
    pthread_join(dispatcher_, nullptr);
    dispatcher_started_ = false;
  }
  const qvn_lock_guard guard(mutex_);
  while (live_workers_ > 0) {
    changed_.wait(mutex_);
  }
}

void* qvn_job_queue::dispatcher_main(void* queue) noexcept {
  auto* const self = static_cast<qvn_job_queue*>(queue);
  qvn_thread_set_name(self->config_.dispatcher_name);
  self->dispatch();
  return nullptr;
}

void qvn_job_queue::dispatch() {
  while (!exiting_) {
    if (qvn_job* const job = next_to_run()) {
      start_worker(job);
    }
  }
}

/// Moves the first waiting job to the running list; null, after a pause, when none waits.
qvn_job* qvn_job_queue::next_to_run() {
  const qvn_lock_guard guard(mutex_);
  if (waiting_.empty()) {
    (void)changed_.wait_for(mutex_, kDispatcherPause);
    return nullptr;
  }
  running_.splice(running_.begin(), waiting_, waiting_.begin());
  ++live_workers_;
  return running_.front().get();
}

void qvn_job_queue::start_worker(qvn_job* job) {
  const int error = create_detached_thread(worker_main, job);
  if (error == 0) {
    return;
  }
  (void)qvn_log_print(config_.source, config_.line, kLogError, 0,
                      "%s task %u worker thread can't be started, %s\n", job->label.c_str(),
                      job->id, std::strerror(error));
  retire(job);
  lower_live_workers();
}

void* qvn_job_queue::worker_main(void* job) noexcept {
  auto* const self = static_cast<qvn_job*>(job);
  qvn_job_queue* const queue = self->queue_;
  char name[32];
  (void)std::snprintf(name, sizeof name, "%s %u", queue->config_.worker_name, self->id);
  qvn_thread_set_name(name);
  self->run();
  queue->retire(self);
  queue->lower_live_workers();
  return nullptr;
}

/// Takes the job out of all counts and frees it.
void qvn_job_queue::retire(qvn_job* job) {
  job_list retired;
  {
    const qvn_lock_guard guard(mutex_);
    retired.splice(
        retired.begin(), running_,
        std::ranges::find_if(running_, [job](const auto& other) { return other.get() == job; }));
  }
  config_.left(*job);
}

void qvn_job_queue::lower_live_workers() {
  const qvn_lock_guard guard(mutex_);
  --live_workers_;
  changed_.broadcast();
}
