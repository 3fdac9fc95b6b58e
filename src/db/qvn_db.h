/// Statements of the jobs: those without rows, the progress of a job's row, and the loaders
/// that take a plain callback with its context (qvn_pg_rows.h hands rows to a callable).
///
/// No function keeps state between calls, retries or locks. A connection belongs to its caller and
/// is used by one thread at a time. A label is a short text that names the caller in messages; it
/// may be null. What fails is logged here, once; callers only look at results. Results of callbacks
/// are ignored: a callback cannot stop a load.
///
/// The daemon itself calls none of qvn_db_data_select, qvn_get_max_record and qvn_db_data_copy_load
/// with their variants; they are the plain form of what qvn_pg_rows.h does.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "db/qvn_pg_connection.h"

/// Runs one or more statements whose rows are not needed. 0, or -1 when sending failed or any
/// result carried an error, each with a NOTICE.
[[nodiscard]] int32_t qvn_db_update(PGconn* connection, const char* sql, const char* label);

/// As qvn_db_update, without a line in the log: for statements that are sent again one by one when
/// any of them fails.
[[nodiscard]] int32_t qvn_db_try_update(PGconn* connection, const char* sql);

/// Where a line of the log comes from: the module's word and the line of its source.
struct qvn_log_place {
  const char* source;
  int line;
};

/// Writes a job's progress into its row. As qvn_db_update, but its NOTICE lines carry the job
/// module's place instead of a label.
int32_t qvn_db_progress(PGconn* connection, const char* sql, qvn_log_place place);

/// As qvn_db_progress, for the first progress of a job: what the server says when it refuses it is
/// put into `refusal`, without its line end, and is not logged. Empty when all is well, and when
/// the answer was lost. Throws std::bad_alloc when memory runs out.
void qvn_db_first_progress(PGconn* connection, const char* sql, qvn_log_place place,
                           std::string& refusal);

/// One row of a query: its index within the result. Valid only during the call, as all that follow.
using pg_row_fn = int32_t (*)(int row, PGresult* result);
using pg_row_context_fn = int32_t (*)(int row, PGresult* result, void* context);

/// One COPY row: the whole line, with its line feed, which may be written to; or its fields.
using pg_line_fn = int32_t (*)(char* line, void* context);
using pg_fields_fn = int32_t (*)(std::span<char*> fields);
using pg_fields_context_fn = int32_t (*)(std::span<char*> fields, void* context);
using pg_fields_extra_fn = int32_t (*)(std::span<char*> fields, void* context, void* extra);

/// As qvn_pg_select.
[[nodiscard]] int32_t qvn_db_data_select(PGconn* connection, const char* sql, pg_row_fn on_row);
[[nodiscard]] int32_t qvn_db_data_select_p1(PGconn* connection, const char* sql,
                                            pg_row_context_fn on_row, void* context);

/// Reads the first column of the last row as a number; untouched when there is no row. 0, or -1,
/// with a NOTICE, when sending failed or the answer was lost.
[[nodiscard]] int32_t qvn_get_max_record(PGconn* connection, const char* sql, int64_t* value,
                                         const char* label);

/// As qvn_pg_copy_fields, and _p1 as qvn_pg_copy_lines: 0, or -1 when not every row came.
///
/// The first one also counts: the rows received, header included, when that is above 1, else 0.
[[nodiscard]] int32_t qvn_db_data_copy_load(PGconn* connection, const char* sql,
                                            std::size_t columns, pg_fields_fn on_row,
                                            int32_t* row_count, const char* label);
[[nodiscard]] int32_t qvn_db_data_copy_load_p1(PGconn* connection, const char* sql,
                                               pg_line_fn on_row, void* context, const char* label);
[[nodiscard]] int32_t qvn_db_data_copy_load_p2(PGconn* connection, const char* sql,
                                               std::size_t columns, pg_fields_context_fn on_row,
                                               void* context, const char* label);
[[nodiscard]] int32_t qvn_db_data_copy_load_p3(PGconn* connection, const char* sql,
                                               std::size_t columns, pg_fields_extra_fn on_row,
                                               void* context, void* extra, const char* label);
