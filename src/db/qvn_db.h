/// The thin layer over libpq that every database user of the daemon goes through: run a statement,
/// run a query row by row, and stream a COPY TO STDOUT into a callback. Connections are those of
/// qvn_pg_connection.h.
///
/// No function keeps state between calls, retries or locks. A connection belongs to its caller and
/// is used by one thread at a time. A label is a short text that names the caller in messages; it
/// may be null. What fails is logged here, once; callers only look at results. Results of callbacks
/// are ignored: a callback cannot stop a load.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "db/qvn_pg_connection.h"

/// One row of a query: its index within the result. Valid only during the call, as all that follow.
using pg_row_fn = int32_t (*)(int row, PGresult* result);
using pg_row_context_fn = int32_t (*)(int row, PGresult* result, void* context);

/// One COPY row: the whole line, with its line feed, which may be written to; or its fields.
using pg_line_fn = int32_t (*)(char* line, void* context);
using pg_fields_fn = int32_t (*)(std::span<char*> fields);
using pg_fields_context_fn = int32_t (*)(std::span<char*> fields, void* context);
using pg_fields_extra_fn = int32_t (*)(std::span<char*> fields, void* context, void* extra);

/// How a loader failed: the server said so; or its answer was lost on this side, by a broken
/// connection or as memory ran out.
inline constexpr int32_t kCopyRefused = -1;
inline constexpr int32_t kCopyLost = -2;

/// Most columns that a splitting loader takes.
inline constexpr std::size_t kMaxCopyColumns = 256;

/// Sends a COPY statement. A result in a COPY state, or the failure with nothing left behind it;
/// null when sending failed.
[[nodiscard]] pg_owned_result qvn_pg_start_copy(PGconn* connection, const char* sql);

/// Runs one or more statements whose rows are not needed. 0, or -1 when sending failed or any
/// result carried an error, each with a NOTICE.
[[nodiscard]] int32_t qvn_db_update(PGconn* connection, const char* sql, const char* label);

/// As qvn_db_update, without a line in the log: for statements that are sent again one by one when
/// any of them fails.
[[nodiscard]] int32_t qvn_db_try_update(PGconn* connection, const char* sql);

/// Writes a job's progress into its row. As qvn_db_update, but its NOTICE lines carry the job
/// module's `source` word instead of a label.
int32_t qvn_db_progress(PGconn* connection, const char* sql, const char* source);

/// As qvn_db_progress, for the first progress of a job: what the server says when it refuses it is
/// put into `refusal`, without its line end, and is not logged. Empty when all is well, and when
/// the answer was lost. Throws std::bad_alloc when memory runs out.
void qvn_db_first_progress(PGconn* connection, const char* sql, const char* source,
                           std::string& refusal);

/// Whether a row has as many columns as were asked for; otherwise the server is not what it should
/// be, with a WARNING.
[[nodiscard]] bool qvn_db_has_columns(const PGresult* result, int columns);

/// Runs a query and hands each row over. The number of rows, or -1, with a NOTICE, when sending
/// failed or the answer was lost, as when memory runs out. A query that fails on the server gives 0
/// rows and a WARNING.
[[nodiscard]] int32_t qvn_db_data_select(PGconn* connection, const char* sql, pg_row_fn on_row);
[[nodiscard]] int32_t qvn_db_data_select_p1(PGconn* connection, const char* sql,
                                            pg_row_context_fn on_row, void* context);

/// Reads the first column of the last row as a number; untouched when there is no row. 0, or -1,
/// with a NOTICE, when sending failed.
[[nodiscard]] int32_t qvn_get_max_record(PGconn* connection, const char* sql, int64_t* value,
                                         const char* label);

/// Stream a "copy ... to stdout delimiter as ',' csv header" row by row; the header line is
/// dropped. 0, or, with a WARNING, one of the two below when the statement or the transfer failed,
/// also when some rows were handed over.
///
/// Rows are split as pg_row_csv_parse does, in place in libpq's buffer; fields that a short row
/// does not reach are empty texts. `columns` is 2 to kMaxCopyColumns.
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

/// Splits a row in place at every "," into fields.size() texts, 2 or more; the last one runs to the
/// line feed, further commas included. A field of exactly two double quotes becomes empty; that is
/// all the CSV there is. When the row ends early the fields not reached keep what they held, and
/// the last one reached keeps its line feed.
void pg_row_csv_parse(char* row, std::span<char*> fields);
void pg_row_csv_parse(char* row, std::span<std::string_view> fields);
