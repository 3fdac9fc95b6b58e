/// One rerating in its worker thread, from the connection to the final row.
#pragma once

#include "rerate/rerate_task.h"

class rerate_worker final : public rerate_task {
 public:
  using rerate_task::rerate_task;

 private:
  void log_begin() const override;
  void work() override;
  void report_memory_shortage() override;
  void write_final_row() override;
  void log_end() const override;
  void release_data() override { reference = {}; }

  rerate_outcome outcome_;
};
