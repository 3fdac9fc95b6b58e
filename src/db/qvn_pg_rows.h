/// Rows of queries and of COPY TO STDOUT, handed over one by one to a callable. The functions that
/// take a plain callback (qvn_db.h) are thin over these.
///
/// No function keeps state between calls, retries or locks. A connection belongs to its caller and
/// is used by one thread at a time. A label is a short text that names the caller in messages; it
/// may be null. What fails is logged here, once. A callable cannot stop a load.
#pragma once

#include <cstdint>
#include <span>

#include "base/qvn_function_ref.h"
#include "base/qvn_text.h"
#include "db/qvn_pg_connection.h"

/// One row of a query. Valid only during the call that hands it over, as all that it gives.
class pg_row {
 public:
  pg_row(PGresult* result, int index) : result_(result), index_(index) {}

  /// A column as a text; empty for a null, and where the server has sent fewer columns.
  [[nodiscard]] const char* text(int column) const;

  /// The column as a base-10 number, cut to the width of T; 0 where the text is no number.
  template <class T>
  [[nodiscard]] T number(int column) const {
    return qvn_number<T>(text(column));
  }

  /// Whether the row has as many columns as were asked for; otherwise the server is not what it
  /// should be, with a WARNING.
  [[nodiscard]] bool has_columns(int columns) const;

  [[nodiscard]] PGresult* result() const { return result_; }
  [[nodiscard]] int index() const { return index_; }  ///< within its result

 private:
  PGresult* result_;
  int index_;
};

/// Runs a query and hands each row over. The number of rows, or -1, with a NOTICE, when sending
/// failed or the answer was lost, as when memory runs out. A query that fails on the server gives 0
/// rows and a WARNING.
int32_t qvn_pg_select(PGconn* connection, const char* sql,
                      qvn_function_ref<void(const pg_row&)> on_row);

/// As qvn_pg_select, but -1 is the caller's to log.
[[nodiscard]] int32_t qvn_pg_select_unlogged(PGconn* connection, const char* sql,
                                             qvn_function_ref<void(const pg_row&)> on_row);

/// How a COPY ended.
enum class pg_copy_end {
  whole,    ///< every row was handed over
  refused,  ///< the server reported an error, with a WARNING; some rows may have been handed over
  lost,     ///< the rest was lost on this side, by a broken connection or without memory; as above
};

/// Streams a "copy ... to stdout delimiter as ',' csv header"; the header line is dropped. A line
/// has its line feed and may be written to.
[[nodiscard]] pg_copy_end qvn_pg_copy_lines(PGconn* connection, const char* sql, const char* label,
                                            qvn_function_ref<void(char* line)> on_line);

/// Most columns that qvn_pg_copy_fields takes; the least are 2.
inline constexpr std::size_t kMaxCopyColumns = 256;

/// As qvn_pg_copy_lines, each line split as pg_row_csv_parse does, in place in libpq's buffer;
/// fields that a short row does not reach are empty texts.
[[nodiscard]] pg_copy_end qvn_pg_copy_fields(
    PGconn* connection, const char* sql, std::size_t columns, const char* label,
    qvn_function_ref<void(std::span<char*> fields)> on_fields);

/// Sends a COPY statement. A result in a COPY state, or the failure with nothing left to fetch;
/// null when sending failed.
[[nodiscard]] pg_owned_result qvn_pg_start_copy(PGconn* connection, const char* sql);

/// Fetches every result that is left and hands it over.
void qvn_pg_drain(PGconn* connection, qvn_function_ref<void(PGresult*)> look);

/// Whether a result carries an error; and whether that arose on this side of the connection, not in
/// the server, as without a result.
[[nodiscard]] bool qvn_pg_has_error(const PGresult* result);
[[nodiscard]] bool qvn_pg_is_lost(const PGresult* result);
