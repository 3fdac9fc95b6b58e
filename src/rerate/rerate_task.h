/// One rerating from its connection to its final row: what the row asks for, and what it works
/// with. Made by the poller, then its worker thread's alone.
#pragma once

#include <utility>

#include "db/qvn_db_job.h"
#include "rate/qvn_rate_table.h"
#include "rerate/rerate_row.h"
#include "rerate/rerate_trunk.h"

/// Seconds since the epoch, both included.
struct rerate_range {
  int64_t from = 0;
  int64_t to = 0;
};

/// What calls are rated with.
struct rerate_reference {
  rerate_trunk_list trunks;
  time_profile_node_tree time_profiles;         ///< by time profile id
  jurisdiction_prefix_node_tree jurisdictions;  ///< jurisdiction country id, then prefix

  /// Some of it, for the job or for the day at hand, found no memory or came no more; calls must
  /// not be priced without it.
  bool lost = false;
};

struct rerate_task final : qvn_db_job {
  explicit rerate_task(rerate_row job_row)
      : row(std::move(job_row)), range{row.from_time, row.to_time} {
    id = row.id;
  }

  [[nodiscard]] bool is_connected() const { return PQstatus(connection.get()) == CONNECTION_OK; }

  const rerate_row row;
  rerate_range range;  ///< of the row; moved by its time zone when the days begin
  rerate_reference reference;
  rerate_figures figures;

 protected:
  void work() override;
  void report_memory_shortage() override;
  void write_final_row() override;
  void log_end() const override;
  void release_data() override { reference = {}; }

 private:
  rerate_outcome outcome_;
};

/// Writes progress and status into the row. A failure is logged as the caller's line and changes
/// nothing. Throws std::bad_alloc when memory runs out.
void rerate_task_progress_update(rerate_task& task, const std::string& text, rerate_status status,
                                 int line = __builtin_LINE());
