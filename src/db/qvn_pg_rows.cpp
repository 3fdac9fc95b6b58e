#include "db/qvn_pg_rows.h"

#include <algorithm>
#include <array>
#include <cassert>

#include "base/qvn_log.h"
#include "base/qvn_time.h"
#include "db/qvn_row_split.h"

namespace {

constexpr const char* kLogSource = "qvn_db";

struct pg_memory_free {
  void operator()(char* memory) const noexcept { PQfreemem(memory); }
};
using pg_copy_row = std::unique_ptr<char, pg_memory_free>;

/// A result in a COPY state is given again and again: a loop over results must end with it.
bool in_copy(const PGresult* result) {
  const ExecStatusType status = PQresultStatus(result);
  return status == PGRES_COPY_IN || status == PGRES_COPY_OUT || status == PGRES_COPY_BOTH;
}

pg_copy_end failure_of(const PGresult* result) {
  return qvn_pg_is_lost(result) ? pg_copy_end::lost : pg_copy_end::refused;
}

pg_copy_end start_copy_out(PGconn* connection, const char* sql, const char* label) {
  const pg_owned_result result = qvn_pg_start_copy(connection, sql);
  if (PQresultStatus(result.get()) == PGRES_COPY_OUT) {
    return pg_copy_end::whole;
  }
  QVN_LOG(kLogWarning, "%s PQexec failed, PQstatus:%d, %s\n", qvn_or_empty(label),
          PQstatus(connection), PQerrorMessage(connection));
  return failure_of(result.get());
}

void log_copy_failure(const PGconn* connection, const char* label) {
  QVN_LOG(kLogWarning, "%s PQgetCopyData failed, PQstatus:%d, %s\n", qvn_or_empty(label),
          PQstatus(connection), PQerrorMessage(connection));
}

/// The next line as by a PQgetCopyData that waits. That one is woken for every 8 kB that the server
/// sends, a seventh of a large COPY's time. So when all that came is read, this rests while more
/// gathers. In a small COPY the rest would cost more than it saves.
int next_line(PGconn* connection, char** line, bool large) {
  constexpr uint32_t kGathering = 500;  // microseconds
  constexpr int kNoneYet = 0;
  constexpr int kFailed = -2;
  int length = PQgetCopyData(connection, line, 1);
  if (length == kNoneYet) {
    length = PQconsumeInput(connection) == 1 ? PQgetCopyData(connection, line, 1) : kFailed;
  }
  if (length == kNoneYet) {
    if (large) {
      qvn_usleep(kGathering);
    }
    length = PQgetCopyData(connection, line, 0);
  }
  return length;
}

/// Reads lines to the end of the data, the header first. False when the transfer failed, logged
/// once.
bool read_lines(PGconn* connection, const char* label, qvn_function_ref<void(char*)> on_line) {
  constexpr int kEndOfData = -1;
  constexpr int kMostFailuresInARow = 10;
  constexpr uint64_t kFewLines = 100;
  int failures_in_a_row = 0;
  bool whole = true;
  for (uint64_t lines = 0;;) {
    char* buffer = nullptr;
    const int length = next_line(connection, &buffer, lines > kFewLines);
    const pg_copy_row line(buffer);
    if (length == kEndOfData) {
      return whole;
    }
    if (length > 0) {
      failures_in_a_row = 0;
      if (lines++ > 0) {
        on_line(line.get());
      }
      continue;
    }
    if (whole) {
      log_copy_failure(connection, label);
    }
    whole = false;
    if (PQstatus(connection) != CONNECTION_OK || ++failures_in_a_row == kMostFailuresInARow) {
      return false;
    }
  }
}

}  // namespace

bool qvn_pg_has_error(const PGresult* result) {
  return *PQresultErrorMessage(result) != '\0';
}

bool qvn_pg_is_lost(const PGresult* result) {
  return !PQresultErrorField(result, PG_DIAG_SQLSTATE);  // which only the server sets
}

void qvn_pg_drain(PGconn* connection, qvn_function_ref<void(PGresult*)> look) {
  while (const pg_owned_result result = qvn_pg_next_result(connection)) {
    look(result.get());
    if (in_copy(result.get())) {
      return;
    }
  }
}

const char* pg_row::text(int column) const {
  const bool there = index_ < PQntuples(result_) && column < PQnfields(result_);
  return there ? PQgetvalue(result_, index_, column) : "";
}

bool pg_row::has_columns(int columns) const {
  if (PQnfields(result_) >= columns) {
    return true;
  }
  QVN_LOG(kLogWarning, "The server answered with %d columns instead of %d\n", PQnfields(result_),
          columns);
  return false;
}

int32_t qvn_pg_select_unlogged(PGconn* connection, const char* sql,
                               qvn_function_ref<void(const pg_row&)> on_row) {
  if (PQsendQuery(connection, sql) != 1) {
    return -1;
  }
  int32_t rows = 0;
  bool lost = false;
  qvn_pg_drain(connection, [&](PGresult* result) {
    if (qvn_pg_has_error(result)) {
      lost = lost || qvn_pg_is_lost(result);
      QVN_LOG(kLogWarning, "PQsendQuery failed, status %s, %s", PQresStatus(PQresultStatus(result)),
              PQresultErrorMessage(result));
    }
    for (int index = 0; index < PQntuples(result); ++index, ++rows) {
      on_row(pg_row(result, index));
    }
  });
  return lost ? -1 : rows;
}

int32_t qvn_pg_select(PGconn* connection, const char* sql,
                      qvn_function_ref<void(const pg_row&)> on_row) {
  const int32_t rows = qvn_pg_select_unlogged(connection, sql, on_row);
  if (rows < 0) {
    QVN_LOG(kLogNotice, "'%s'  failed, PQstatus:%d, %s\n", sql, PQstatus(connection),
            PQerrorMessage(connection));
  }
  return rows;
}

pg_owned_result qvn_pg_start_copy(PGconn* connection, const char* sql) {
  if (PQsendQuery(connection, sql) != 1) {
    return nullptr;
  }
  pg_owned_result result = qvn_pg_next_result(connection);
  if (!in_copy(result.get())) {
    qvn_pg_drain(connection, [](const PGresult*) {});
  }
  return result;
}

pg_copy_end qvn_pg_copy_lines(PGconn* connection, const char* sql, const char* label,
                              qvn_function_ref<void(char* line)> on_line) {
  pg_copy_end end = start_copy_out(connection, sql, label);
  if (end != pg_copy_end::whole) {
    return end;
  }
  if (!read_lines(connection, label, on_line)) {
    end = pg_copy_end::lost;
  }
  // A cancelled query or a killed backend looks like a normal end of data; its error comes here.
  qvn_pg_drain(connection, [&](const PGresult* result) {
    if (end == pg_copy_end::whole && qvn_pg_has_error(result)) {
      log_copy_failure(connection, label);
      end = failure_of(result);
    }
  });
  return end;
}

pg_copy_end qvn_pg_copy_fields(PGconn* connection, const char* sql, std::size_t columns,
                               const char* label,
                               qvn_function_ref<void(std::span<char*> fields)> on_fields) {
  assert(columns >= 2 && columns <= kMaxCopyColumns);
  std::array<char*, kMaxCopyColumns> entries;
  const std::span<char*> fields(entries.data(), columns);
  return qvn_pg_copy_lines(connection, sql, label, [&](char* line) {
    char empty[] = "";
    std::ranges::fill(fields, &empty[0]);
    pg_row_csv_parse(line, fields);
    on_fields(fields);
  });
}
