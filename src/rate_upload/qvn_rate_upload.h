/// The rate import module: turns rows of `rate_upload_task` into running imports.
///
/// The poller calls qvn_rate_upload_task_get for every database; a dispatcher thread starts one
/// detached worker for each admitted row. Everything else here is the main thread's, and exit and
/// uninit are safe in any state. Locks: the queue's mutex (db/qvn_job_queue.h); the settings are
/// written before the first thread starts.
#pragma once

#include <cstdint>
#include <libpq-fe.h>
#include <string>

#include "core/qvn_core_ctrl.h"

struct db_info;
struct qvn_conf_section;

/// 0, or -1, logged, when memory runs out.
[[nodiscard]] int32_t qvn_rate_upload_init();

/// Reads section `rate_upload` of the main configuration file. 0, or -1 when the file cannot be
/// opened.
[[nodiscard]] int32_t qvn_rate_upload_conf();

/// Starts the dispatcher. 0, or the error number.
[[nodiscard]] int32_t qvn_rate_upload_start();

/// Ends the dispatcher and waits for the running imports. Returns 0.
int32_t qvn_rate_upload_exit();

/// Frees the waiting imports and the module. Returns 0.
int32_t qvn_rate_upload_uninit();

/// Picks up at most two waiting rows of the database behind `connection`. 1 when the module is at
/// its limit, which one job, and each poll by two, may exceed; else the number of rows, or -1 when
/// the query could not be sent. Poller thread, which holds the database list lock.
[[nodiscard]] int32_t qvn_rate_upload_task_get(PGconn* connection, db_info* database)
    QVN_REQUIRES(g_core_ctrl->db_list_lock);

/// The directory below which each import's result files are put; ends in "/".
[[nodiscard]] const std::string& qvn_rate_upload_result_directory();

/// The section of the main configuration file and its settings.
[[nodiscard]] qvn_conf_section qvn_rate_upload_section();

/// Handler of the section: 0 to go on, -1, with a NOTICE, to stop.
int32_t read_rate_upload_config(const char* key, const char* value);
