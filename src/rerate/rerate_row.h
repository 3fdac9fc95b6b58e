/// The row of `rerate_cdr_task`: what a rerating is asked to do, and every statement that reads the
/// row or writes to it. No connection. Functions throw std::bad_alloc when memory runs out.
#pragma once

#include <cstdint>
#include <string>

#include "db/qvn_pg_rows.h"
#include "rerate/rerate_outcome.h"

/// Asks for the next waiting rows, and the number of its columns.
inline constexpr const char* kRerateJobQuery =
    "select id,from_time,to_time,timezone,update_lrn,update_us_jurisdiction,update_local_rate,"
    "ingress_trunk,egress_trunk,lrn_server_ip,lrn_server_port,include_q850 from rerate_cdr_task "
    "where status=0 limit 2;";
inline constexpr int kRerateJobColumns = 12;

/// Values of the row's column `status`.
enum class rerate_status : int32_t {
  waiting = 0,
  loading_cdrs = 1,
  loading_rates = 2,
  rating = 3,
  finished = 4,
  failed = 5,
};

struct rerate_row {
  uint32_t id = 0;
  int64_t from_time = 0;   ///< seconds since the epoch
  int64_t to_time = 0;     ///< this second is included
  int32_t timezone = 0;    ///< hours that both times are moved back by
  uint8_t update_lrn = 0;  ///< 1: on, as the next two and the last
  uint8_t update_us_jurisdiction = 0;
  uint8_t update_local_rate = 0;
  std::string ingress_trunks;  ///< trunk text, as the next
  std::string egress_trunks;
  std::string lrn_server_ip;  ///< at most 15 characters
  int32_t lrn_server_port = 0;
  uint8_t include_q850 = 0;
};

/// What the row shows of the work.
struct rerate_figures {
  int64_t cdr_load_seconds = 0;
  int64_t rate_load_seconds = 0;
  uint32_t cdr_count = 0;  ///< calls loaded, both sides; for the log
  std::string cdr_files;   ///< names of the files written, each followed by ","
};

/// Reads a row of the job query.
[[nodiscard]] rerate_row rerate_row_read(const pg_row& row);

/// The statement that shows how far the job is. Nothing in the text is escaped.
[[nodiscard]] std::string rerate_row_progress_update(uint32_t id, const char* text,
                                                     rerate_status status);

/// The statement of the job's end, with the job's own times and the path of its CDR files.
[[nodiscard]] std::string rerate_row_final_update(uint32_t id, const rerate_outcome& outcome,
                                                  const rerate_figures& figures, int64_t start_time,
                                                  int64_t end_time, const std::string& path);
