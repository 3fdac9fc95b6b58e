/// One rerating: the row of `rerate_cdr_task`, what it has loaded and how far it has come. Made by
/// the poller, then its worker thread's alone.
#pragma once

#include <cstdint>
#include <string>

#include "db/qvn_db.h"
#include "db/qvn_job_folder.h"
#include "db/qvn_job_queue.h"
#include "rerate/cdr_columns.h"
#include "rerate/rerate_day.h"
#include "rerate/rerate_trunk.h"
#include "rerate/rerated_calls.h"

/// The texts of a shortage of memory: for the portal, and for the log with the id.
inline constexpr const char* kRerateMemoryShortage = "System memory shortage";
inline constexpr const char* kRerateAllocFailed = "Alloc memory for rereta task %u failed\n";

/// Asks for the next waiting rows.
inline constexpr const char* kRerateJobQuery =
    "select id,from_time,to_time,timezone,update_lrn,update_us_jurisdiction,update_local_rate,"
    "ingress_trunk,egress_trunk,lrn_server_ip,lrn_server_port,include_q850 from rerate_cdr_task "
    "where status=0 limit 2;";

/// Values of the row's column `status`.
enum class rerate_status : int32_t {
  waiting = 0,
  loading_cdrs = 1,
  loading_rates = 2,
  rating = 3,
  finished = 4,
  failed = 5,
};

/// Values of the row's column `err_code`.
enum class rerate_error : int32_t {
  none = 0,
  invalid_job = 1,
  cdr_load = 2,
  reference_data = 3,
  system = 4,
  connection = 5,
  rating = 6,
};

struct rerate_task final : qvn_job {
  ~rerate_task() override { release_data(); }

  void run() noexcept override;

  /// Frees trees and trunks: all that grows with the reference data and the calls.
  void release_data();

  /// Marks the job, or the day at hand, as failed, with the text that the portal will show; at most
  /// 199 characters of it are kept.
  [[gnu::format(printf, 3, 4)]] void fail(rerate_error code, const char* format, ...);
  void fail(rerate_error code);

  /// Forgets the failures of single days.
  void succeed();

  [[nodiscard]] rerate_trunk_list& trunks(call_side side) {
    return side == call_side::ingress ? ingress_trunks : egress_trunks;
  }
  [[nodiscard]] std::size_t column_count() const {
    return include_q850 == 1 ? kCdrColumnsWithQ850 : kCdrColumns;
  }

  pg_connection connection;  ///< null until the worker has connected
  qvn_job_folder folder;     ///< of the CDR files
  rerate_error error = rerate_error::none;
  rerate_status status = rerate_status::waiting;  ///< to be written at the end
  char error_text[200] = {};

  int64_t from_time = 0;   ///< seconds since the epoch; moved by `timezone` when the days begin
  int64_t to_time = 0;     ///< this second is included
  int32_t timezone = 0;    ///< hours
  uint8_t update_lrn = 0;  ///< 1: on, as the three below
  uint8_t update_us_jurisdiction = 0;
  uint8_t update_local_rate = 0;
  uint8_t include_q850 = 0;
  std::string lrn_server_ip;
  int32_t lrn_server_port = 0;
  std::string ingress_trunk_text;
  std::string egress_trunk_text;

  rerate_trunk_list ingress_trunks;
  rerate_trunk_list egress_trunks;
  rp_hash_node* time_profiles = nullptr;  ///< by time profile id
  rp_hash_node* jurisdictions = nullptr;  ///< jurisdiction country id, then prefix

  /// Some reference data, of the job or of the day at hand, found no memory or came no more; calls
  /// must not be priced without it.
  bool reference_data_lost = false;

  int64_t start_time = 0;  ///< when the row was read, later when its work began
  int64_t end_time = 0;
  int64_t cdr_load_seconds = 0;
  int64_t rate_load_seconds = 0;
  int64_t rerate_seconds = 0;  ///< counted by nobody; the row's column shows 0
  uint32_t cdr_count = 0;      ///< calls loaded, both sides
  std::string cdr_files;       ///< names of the files written, each followed by ","
};

/// "ingress" or "egress".
[[nodiscard]] const char* side_name(call_side side);

/// Writes progress and status into the row. A failure is logged and changes nothing. Throws
/// std::bad_alloc when memory runs out.
void rerate_task_progress_update(rerate_task& task, const char* text, rerate_status status);

/// Makes the trunks of one side from its trunk text. 0; -1 when the text is invalid, or -2 when
/// memory runs out, each logged and with the task failed.
[[nodiscard]] int32_t rerate_task_trunk_parse(rerate_task& task, call_side side,
                                              const std::string& text);

/// Loads what stands for the whole job: time profiles, jurisdictions, the trunks' settings, and the
/// rates of the trunks that name a date. False, with the task failed, when something is missing or
/// found no memory. Throws std::bad_alloc when memory runs out, as all that follow.
[[nodiscard]] bool rerate_load_reference_data(rerate_task& task);

/// Loads the rates of the trunks that follow the calls' date, as they are when the day begins.
/// False, with the task failed, when one has none.
[[nodiscard]] bool rerate_load_rates_of_day(rerate_task& task, const rerate_day& day);

/// Loads the trunk's answered calls of the day, each of which is priced as it comes. 0, or -1,
/// logged.
[[nodiscard]] int32_t get_rerate_cdr(rerate_task& task, call_side side, const rerate_trunk& trunk,
                                     const rerate_day& day, rerated_calls& calls);

/// Makes the trunk's CDR file of that day of its calls, or appends them to it. 0, or -1, logged,
/// when the file cannot be written or the list of files is full.
[[nodiscard]] int32_t execute_rerating(rerate_task& task, call_side side, const rerate_trunk& trunk,
                                       const std::string& date, const rerated_calls& calls);
