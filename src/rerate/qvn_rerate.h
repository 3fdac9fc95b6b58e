/// The rerating module: turns rows of `rerate_cdr_task` into running reratings.
///
/// The poller calls qvn_rerate_task_get for every database; a dispatcher thread starts one detached
/// worker for each admitted row. Everything else here is the main thread's, and exit and uninit are
/// safe in any state. Locks: the queue's mutex (db/qvn_job_queue.h); the settings are written
/// before the first thread starts.
#pragma once

#include <cstdint>
#include <libpq-fe.h>
#include <string>

#include "core/qvn_core_ctrl.h"

struct db_info;
struct qvn_conf_section;

/// 0, or -1, logged, when memory runs out.
[[nodiscard]] int32_t qvn_rerate_init();

/// Reads section `rerate` of the main configuration file. 0, or -1 when the file cannot be opened.
[[nodiscard]] int32_t qvn_rerate_conf();

/// Starts the dispatcher. 0, or the error number.
[[nodiscard]] int32_t qvn_rerate_start();

/// Ends the dispatcher and waits for the running reratings. Returns 0.
int32_t qvn_rerate_exit();

/// Frees the waiting reratings and the module. Returns 0.
int32_t qvn_rerate_uninit();

/// Picks up at most two waiting rows of the database of `connection`. 1 when the module is
/// above its limit, which therefore may be exceeded by two; else the number of rows, or -1 when the
/// query could not be sent. Poller thread, which holds the database list lock.
[[nodiscard]] int32_t qvn_rerate_task_get(PGconn* connection, db_info* database)
    QVN_REQUIRES(g_core_ctrl->db_list_lock);

/// The directory below which each rerating's CDR files are put; ends in "/".
[[nodiscard]] const std::string& qvn_rerate_cdr_directory();

/// The section of the main configuration file and its settings.
[[nodiscard]] qvn_conf_section qvn_rerate_section();

/// Handler of the section: 0 to go on, -1, with a NOTICE, to stop.
int32_t read_rerate_config(const char* key, const char* value);
