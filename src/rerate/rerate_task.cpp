#include "rerate/rerate_task.h"

#include <ctime>
#include <utility>

rerate_task::rerate_task(rerate_row from)
    : row(std::move(from)), range{row.from_time, row.to_time} {
  id = row.id;
  start_time = std::time(nullptr);
}

void rerate_task_progress_update(rerate_task& task, const std::string& text, rerate_status status,
                                 int line) {
  const std::string sql = rerate_row_progress_update(task.id, text.c_str(), status);
  (void)qvn_db_progress(task.connection.get(), sql.c_str(), {"qvn_rerate", line});
}
