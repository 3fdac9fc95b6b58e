#include "db/qvn_db_job.h"

#include <ctime>
#include <new>

#include "base/qvn_text.h"

void qvn_db_job::run() noexcept {
  guarded(&qvn_db_job::work);
  guarded(&qvn_db_job::finish);
  folder.open_to_all();
  log_end();
  release_data();
}

void qvn_db_job::guarded(void (qvn_db_job::*step)()) {
  try {
    (this->*step)();
  } catch (const std::bad_alloc&) {
    report_memory_shortage();
  }
}

/// Without a connection the row stays as it is and is offered again by the next poll.
void qvn_db_job::finish() {
  end_time = std::time(nullptr);
  if (connection) {
    write_final_row();
    connection.reset();
  }
}

std::string qvn_db_job::write_first_progress(const std::string& sql, qvn_log_place place) {
  std::string refusal;
  qvn_db_first_progress(connection.get(), sql.c_str(), place, refusal);
  if (refusal.empty()) {
    return refusal;
  }
  connection.reset();
  return qvn_format("job row can't be written, %s", refusal.c_str());
}
