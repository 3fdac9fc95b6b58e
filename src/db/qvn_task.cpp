#include "db/qvn_task.h"

#include <algorithm>
#include <atomic>
#include <ctime>
#include <new>
#include <pthread.h>

#include "base/qvn_log.h"
#include "base/qvn_thread.h"
#include "base/qvn_time.h"
#include "core/qvn_core_ctrl.h"
#include "db/qvn_db_conf.h"

namespace {

constexpr const char* kLogSource = "qvn_task";
constexpr const char* kLabel = "WEB task";

constexpr int64_t kBusyInterval = 3;  // seconds
constexpr int64_t kIdleInterval = 5;

struct qvn_task_ctrl {
  pthread_t thread{};
  bool started = false;               ///< main thread only
  std::atomic<bool> exiting = false;  ///< asks the thread to stop
  int64_t next_poll_time = 0;         ///< when the next cycle may begin; poll thread only
  uint64_t cycle = 0;                 ///< cycles so far; poll thread only
};

qvn_task_ctrl* g_task_ctrl = nullptr;

std::span<const qvn_job_picker> g_pickers;

/// Waits for the next poll time and returns the clock reading at which the cycle begins. A clock
/// that was stepped back does not prolong the wait beyond one interval.
int64_t wait_for_next_poll() {
  int64_t now = std::time(nullptr);
  while (now < g_task_ctrl->next_poll_time) {
    g_task_ctrl->next_poll_time = std::min(g_task_ctrl->next_poll_time, now + kIdleInterval);
    qvn_sleep(1);
    if (g_task_ctrl->exiting) {
      break;
    }
    now = std::time(nullptr);
  }
  return now;
}

/// What the pickers answered, OR-ed; 0 without a connection.
int32_t ask(PGconn* connection, db_info* database) {
  int32_t found = 0;
  for (const qvn_job_picker picker : g_pickers) {
    found |= connection ? picker(connection, database) : 0;
  }
  return found;
}

int32_t visit(db_info* database, const pg_visit_limits& limits, poll_budget& budget)
    QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  poll_record& record = database->polling;
  const pg_visit visit(database->conninfo.c_str(), kLabel, limits, record.limits_statements);
  const int32_t found = ask(visit.connection(), database);
  budget.note(record, visit.elapsed(), visit.ran_out(), std::chrono::steady_clock::now());
  return found;
}

int32_t visit_trusted(poll_budget& budget) QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  int32_t found = 0;
  for (db_info& database : *g_core_ctrl->db_table) {
    if (!database.polling.suspected) {
      found |= visit(&database, budget.for_trusted(), budget);
    }
  }
  return found;
}

/// The suspected database that has waited longest; null when all have been visited in this cycle.
db_info* next_suspected(const poll_budget& budget) QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  db_info* next = nullptr;
  for (db_info& database : *g_core_ctrl->db_table) {
    const poll_record& record = database.polling;
    if (record.suspected && budget.is_due(record) &&
        (!next || record.last_cycle < next->polling.last_cycle)) {
      next = &database;
    }
  }
  return next;
}

int32_t visit_suspected(poll_budget& budget) QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  int32_t found = 0;
  while (db_info* const database = next_suspected(budget)) {
    const auto limits = budget.for_suspected(database->polling, std::chrono::steady_clock::now());
    if (!limits) {
      break;
    }
    found |= visit(database, *limits, budget);
  }
  return found;
}

int32_t visit_all() {
  const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
  poll_budget budget(++g_task_ctrl->cycle, qvn_pg_connect_timeout());
  const int32_t found = visit_trusted(budget);
  return found | visit_suspected(budget);
}

void* task_threand_run(void* /*unused*/) noexcept {
  qvn_thread_set_name("qvn_poller");
  g_task_ctrl->next_poll_time = std::time(nullptr) + kIdleInterval;
  while (!g_task_ctrl->exiting) {
    const int64_t begin = wait_for_next_poll();
    if (g_task_ctrl->exiting) {
      break;
    }
    g_task_ctrl->next_poll_time = begin + qvn_task_interval(visit_all());
  }
  return nullptr;
}

}  // namespace

void qvn_task_set_pickers(std::span<const qvn_job_picker> pickers) {
  g_pickers = pickers;
}

int64_t qvn_task_interval(int32_t found) {
  return found > 0 ? kBusyInterval : kIdleInterval;
}

int32_t qvn_task_init() {
  g_task_ctrl = new (std::nothrow) qvn_task_ctrl;
  if (!g_task_ctrl) {
    QVN_LOG(kLogError, "Alloc memory for task control failed\n");
    return -1;
  }
  return 0;
}

int32_t qvn_task_start() {
  const int result = pthread_create(&g_task_ctrl->thread, nullptr, task_threand_run, nullptr);
  g_task_ctrl->started = result == 0;
  return result;
}

int32_t qvn_task_exit() {
  if (!g_task_ctrl) {
    return 0;
  }
  g_task_ctrl->exiting = true;
  if (g_task_ctrl->started) {
    pthread_join(g_task_ctrl->thread, nullptr);
    g_task_ctrl->started = false;
  }
  return 0;
}

int32_t qvn_task_uninit() {
  delete g_task_ctrl;
  g_task_ctrl = nullptr;
  return 0;
}
