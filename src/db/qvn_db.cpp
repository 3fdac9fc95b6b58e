#include "db/qvn_db.h"

#include <algorithm>

#include "base/qvn_log.h"
#include "base/qvn_text.h"
#include "db/qvn_pg_rows.h"

namespace {

constexpr const char* kLogSource = "qvn_db";

/// Sends and drains. 0, or -1 with each failure handed over: the result that carries it, or null
/// when sending failed.
int32_t run(PGconn* connection, const char* sql, qvn_function_ref<void(const PGresult*)> on_error) {
  if (PQsendQuery(connection, sql) != 1) {
    on_error(nullptr);
    return -1;
  }
  int32_t status = 0;
  qvn_pg_drain(connection, [&](const PGresult* result) {
    if (qvn_pg_has_error(result)) {
      on_error(result);
      status = -1;
    }
  });
  return status;
}

/// A failure as run() hands it over; the label and the gap after it stand in front.
void log_failure(const PGconn* connection, const PGresult* result, qvn_log_place place,
                 const char* label, const char* gap) {
  if (!result) {
    (void)qvn_log_print(place.source, place.line, kLogNotice, 0, "%s%sPQsendQuery failed, %s",
                        label, gap, PQerrorMessage(connection));
    return;
  }
  (void)qvn_log_print(place.source, place.line, kLogNotice, 0,
                      "%s%sPQsendQuery failed, status %s, %s", label, gap,
                      PQresStatus(PQresultStatus(result)), PQresultErrorMessage(result));
}

int32_t result_of(pg_copy_end end) {
  return end == pg_copy_end::whole ? 0 : -1;
}

}  // namespace

int32_t qvn_db_update(PGconn* connection, const char* sql, const char* label) {
  return run(connection, sql, [&](const PGresult* result) {
    log_failure(connection, result, {kLogSource, __LINE__}, qvn_or_empty(label), " ");
  });
}

int32_t qvn_db_try_update(PGconn* connection, const char* sql) {
  return run(connection, sql, [](const PGresult*) {});
}

int32_t qvn_db_progress(PGconn* connection, const char* sql, qvn_log_place place) {
  return run(connection, sql,
             [&](const PGresult* result) { log_failure(connection, result, place, "", ""); });
}

void qvn_db_first_progress(PGconn* connection, const char* sql, qvn_log_place place,
                           std::string& refusal) {
  refusal.clear();
  (void)run(connection, sql, [&](const PGresult* result) {
    if (qvn_pg_is_lost(result)) {
      log_failure(connection, result, place, "", "");
    } else {
      refusal = PQresultErrorMessage(result);
      refusal.resize(std::min(refusal.size(), refusal.find('\n')));
    }
  });
}

int32_t qvn_db_data_select(PGconn* connection, const char* sql, pg_row_fn on_row) {
  return qvn_pg_select(connection, sql,
                       [&](const pg_row& row) { (void)on_row(row.index(), row.result()); });
}

int32_t qvn_db_data_select_p1(PGconn* connection, const char* sql, pg_row_context_fn on_row,
                              void* context) {
  return qvn_pg_select(connection, sql, [&](const pg_row& row) {
    (void)on_row(row.index(), row.result(), context);
  });
}

int32_t qvn_get_max_record(PGconn* connection, const char* sql, int64_t* value, const char* label) {
  const auto keep = [value](const pg_row& row) { *value = row.number<int64_t>(0); };
  if (qvn_pg_select_unlogged(connection, sql, keep) >= 0) {
    return 0;
  }
  QVN_LOG(kLogNotice, "Get %s max record id failed , PQstatus:%d, %s\n", qvn_or_empty(label),
          PQstatus(connection), PQerrorMessage(connection));
  return -1;
}

int32_t qvn_db_data_copy_load(PGconn* connection, const char* sql, std::size_t columns,
                              pg_fields_fn on_row, int32_t* row_count, const char* label) {
  int32_t rows = 0;
  const pg_copy_end end =
      qvn_pg_copy_fields(connection, sql, columns, label, [&](std::span<char*> fields) {
        ++rows;
        (void)on_row(fields);
      });
  *row_count = rows > 0 ? rows + 1 : 0;  // the header counts
  return result_of(end);
}

int32_t qvn_db_data_copy_load_p1(PGconn* connection, const char* sql, pg_line_fn on_row,
                                 void* context, const char* label) {
  return result_of(
      qvn_pg_copy_lines(connection, sql, label, [&](char* line) { (void)on_row(line, context); }));
}

int32_t qvn_db_data_copy_load_p2(PGconn* connection, const char* sql, std::size_t columns,
                                 pg_fields_context_fn on_row, void* context, const char* label) {
  return result_of(
      qvn_pg_copy_fields(connection, sql, columns, label,
                         [&](std::span<char*> fields) { (void)on_row(fields, context); }));
}

int32_t qvn_db_data_copy_load_p3(PGconn* connection, const char* sql, std::size_t columns,
                                 pg_fields_extra_fn on_row, void* context, void* extra,
                                 const char* label) {
  return result_of(
      qvn_pg_copy_fields(connection, sql, columns, label,
                         [&](std::span<char*> fields) { (void)on_row(fields, context, extra); }));
}
