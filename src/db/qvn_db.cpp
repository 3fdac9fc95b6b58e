#include "db/qvn_db.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/qvn_log.h"
#include "base/qvn_text.h"

namespace {

constexpr const char* kLogSource = "qvn_db";

struct pg_memory_free {
  void operator()(char* memory) const noexcept { PQfreemem(memory); }
};
using pg_copy_row = std::unique_ptr<char, pg_memory_free>;

bool has_error(const PGresult* result) {
  return *PQresultErrorMessage(result) != '\0';
}

/// What the server says has a state; what happens on this side of the connection has none.
bool is_lost(const PGresult* result) {
  return PQresultErrorField(result, PG_DIAG_SQLSTATE) == nullptr;
}

/// A result in a COPY state is given again and again: a loop over results must end with it.
bool in_copy(const PGresult* result) {
  const ExecStatusType status = PQresultStatus(result);
  return status == PGRES_COPY_IN || status == PGRES_COPY_OUT || status == PGRES_COPY_BOTH;
}

/// Fetches every result that is left and hands it to `look`.
template <class Look>
void drain(PGconn* connection, Look look) {
  while (const pg_owned_result result = qvn_pg_next_result(connection)) {
    look(result.get());
    if (in_copy(result.get())) {
      return;
    }
  }
}

/// Sends and drains; `on_send_failure` and `on_error` report. 0 or -1.
template <class OnSendFailure, class OnError>
int32_t run(PGconn* connection, const char* sql, OnSendFailure on_send_failure, OnError on_error) {
  if (PQsendQuery(connection, sql) != 1) {
    on_send_failure();
    return -1;
  }
  int32_t status = 0;
  drain(connection, [&](const PGresult* result) {
    if (has_error(result)) {
      on_error(result);
      status = -1;
    }
  });
  return status;
}

/// Sends a query and hands every row of every result to `on_row`. The number of rows, or -1 when
/// sending failed or the answer was lost, which the caller reports.
template <class OnRow>
int32_t select(PGconn* connection, const char* sql, OnRow on_row) {
  if (PQsendQuery(connection, sql) != 1) {
    return -1;
  }
  int32_t rows = 0;
  bool lost = false;
  drain(connection, [&](PGresult* result) {
    if (has_error(result)) {
      lost = lost || is_lost(result);
      QVN_LOG(kLogWarning, "PQsendQuery failed, status %s, %s", PQresStatus(PQresultStatus(result)),
              PQresultErrorMessage(result));
    }
    for (int row = 0; row < PQntuples(result); ++row, ++rows) {
      on_row(row, result);
    }
  });
  return lost ? -1 : rows;
}

template <class OnRow>
int32_t select_reported(PGconn* connection, const char* sql, OnRow on_row) {
  const int32_t rows = select(connection, sql, on_row);
  if (rows < 0) {
    QVN_LOG(kLogNotice, "'%s'  failed, PQstatus:%d, %s\n", sql, PQstatus(connection),
            PQerrorMessage(connection));
  }
  return rows;
}

void log_progress_not_sent(const PGconn* connection, const char* source) {
  (void)qvn_log_print(source, __LINE__, kLogNotice, 0, "PQsendQuery failed, %s",
                      PQerrorMessage(connection));
}

void log_progress_failure(const PGresult* result, const char* source) {
  (void)qvn_log_print(source, __LINE__, kLogNotice, 0, "PQsendQuery failed, status %s, %s",
                      PQresStatus(PQresultStatus(result)), PQresultErrorMessage(result));
}

/// 0, kCopyRefused or kCopyLost, the latter two logged.
int32_t start_copy_out(PGconn* connection, const char* sql, const char* label) {
  const pg_owned_result result = qvn_pg_start_copy(connection, sql);
  if (PQresultStatus(result.get()) == PGRES_COPY_OUT) {
    return 0;
  }
  QVN_LOG(kLogWarning, "%s PQexec failed, PQstatus:%d, %s\n", qvn_or_empty(label),
          PQstatus(connection), PQerrorMessage(connection));
  return is_lost(result.get()) ? kCopyLost : kCopyRefused;
}

void log_copy_failure(const PGconn* connection, const char* label) {
  QVN_LOG(kLogWarning, "%s PQgetCopyData failed, PQstatus:%d, %s\n", qvn_or_empty(label),
          PQstatus(connection), PQerrorMessage(connection));
}

/// Reads rows to the end of the data; the first is the header. `received` counts all of them. False
/// when the transfer failed, logged once.
template <class OnRow>
bool read_copy_rows(PGconn* connection, const char* label, int32_t& received, OnRow on_row) {
  constexpr int kEndOfData = -1;
  constexpr int kMostFailuresInARow = 10;
  int failures_in_a_row = 0;
  bool whole = true;
  for (;;) {
    char* buffer = nullptr;
    const int length = PQgetCopyData(connection, &buffer, 0);
    const pg_copy_row row(buffer);
    if (length == kEndOfData) {
      return whole;
    }
    if (length > 0) {
      failures_in_a_row = 0;
      if (received++ > 0) {
        on_row(row.get());
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

/// The common part of all loaders.
template <class OnRow>
int32_t copy_load(PGconn* connection, const char* sql, const char* label, int32_t& received,
                  OnRow on_row) {
  if (const int32_t failure = start_copy_out(connection, sql, label)) {
    return failure;
  }
  int32_t status = read_copy_rows(connection, label, received, on_row) ? 0 : kCopyLost;
  // A cancelled query or a killed backend looks like a normal end of data; its error comes here.
  drain(connection, [&](const PGresult* result) {
    if (status == 0 && has_error(result)) {
      log_copy_failure(connection, label);
      status = is_lost(result) ? kCopyLost : kCopyRefused;
    }
  });
  return status;
}

template <class OnFields>
int32_t copy_load_fields(PGconn* connection, const char* sql, std::size_t columns,
                         const char* label, int32_t& received, OnFields on_fields) {
  assert(columns >= 2 && columns <= kMaxCopyColumns);
  std::array<char*, kMaxCopyColumns> entries;
  const std::span<char*> fields(entries.data(), columns);
  return copy_load(connection, sql, label, received, [&](char* row) {
    char empty[] = "";
    std::ranges::fill(fields, &empty[0]);
    pg_row_csv_parse(row, fields);
    on_fields(fields);
  });
}

/// A field is kept as its first character, or with its length.
void keep_field(char*& field, char* begin, const char* /*end*/) {
  field = begin;
}
void keep_field(std::string_view& field, char* begin, const char* end) {
  field = {begin, end};
}

template <class Field>
void end_field(Field& field, char* begin, char* end) {
  if (end - begin == 2 && begin[0] == '"' && begin[1] == '"') {
    end = begin;
  }
  *end = '\0';
  keep_field(field, begin, end);
}

/// The high bit of each byte of `word` that holds a comma.
uint64_t commas_in(uint64_t word) {
  constexpr uint64_t kCommas = 0x2c2c2c2c2c2c2c2c;
  constexpr uint64_t kLowBits = 0x7f7f7f7f7f7f7f7f;
  const uint64_t differing = word ^ kCommas;
  return ~(((differing & kLowBits) + kLowBits) | differing | kLowBits);
}

/// Finds commas in a text eight bytes at a time: a call record has a hundred of them, a few bytes
/// apart, where a search for each one from the last costs more in calls than in looking.
class comma_finder {
 public:
  explicit comma_finder(char* text) : next_(text), end_(text + std::strlen(text)) {}

  /// The next comma, or null.
  char* find() {
    static_assert(std::endian::native == std::endian::little);
    constexpr int kBitsAByte = 8;
    while (found_ == 0) {
      if (end_ - next_ < kWord) {
        return find_in_rest();
      }
      uint64_t word = 0;
      std::memcpy(&word, next_, kWord);
      next_ += kWord;
      found_ = commas_in(word);
    }
    char* const comma = next_ - kWord + std::countr_zero(found_) / kBitsAByte;
    found_ &= found_ - 1;
    return comma;
  }

 private:
  static constexpr std::ptrdiff_t kWord = sizeof(uint64_t);

  char* find_in_rest() {
    char* const comma = std::find(next_, end_, ',');
    next_ = comma == end_ ? end_ : comma + 1;
    return comma == end_ ? nullptr : comma;
  }

  char* next_;  ///< behind what was looked at
  char* const end_;
  uint64_t found_ = 0;  ///< commas of the word before `next_` that are still to be given
};

template <class Field>
void split_row(char* row, std::span<Field> fields) {
  const std::size_t last = fields.size() - 1;
  comma_finder commas(row);
  char* begin = row;
  for (std::size_t index = 0; index < last; ++index) {
    char* const comma = commas.find();
    if (!comma) {
      keep_field(fields[index], begin, begin + std::strlen(begin));
      return;
    }
    end_field(fields[index], begin, comma);
    begin = comma + 1;
  }
  end_field(fields[last], begin, begin + std::strcspn(begin, "\n"));
}

}  // namespace

pg_owned_result qvn_pg_start_copy(PGconn* connection, const char* sql) {
  if (PQsendQuery(connection, sql) != 1) {
    return nullptr;
  }
  pg_owned_result result = qvn_pg_next_result(connection);
  if (!in_copy(result.get())) {
    drain(connection, [](const PGresult*) {});
  }
  return result;
}

int32_t qvn_db_update(PGconn* connection, const char* sql, const char* label) {
  return run(
      connection, sql,
      [&] {
        QVN_LOG(kLogNotice, "%s PQsendQuery failed, %s", qvn_or_empty(label),
                PQerrorMessage(connection));
      },
      [&](const PGresult* result) {
        QVN_LOG(kLogNotice, "%s PQsendQuery failed, status %s, %s", qvn_or_empty(label),
                PQresStatus(PQresultStatus(result)), PQresultErrorMessage(result));
      });
}

int32_t qvn_db_try_update(PGconn* connection, const char* sql) {
  return run(
      connection, sql, [] {}, [](const PGresult*) {});
}

int32_t qvn_db_progress(PGconn* connection, const char* sql, const char* source) {
  return run(
      connection, sql, [&] { log_progress_not_sent(connection, source); },
      [&](const PGresult* result) { log_progress_failure(result, source); });
}

void qvn_db_first_progress(PGconn* connection, const char* sql, const char* source,
                           std::string& refusal) {
  refusal.clear();
  (void)run(
      connection, sql, [&] { log_progress_not_sent(connection, source); },
      [&](const PGresult* result) {
        if (is_lost(result)) {
          log_progress_failure(result, source);
        } else {
          refusal = PQresultErrorMessage(result);
          refusal.resize(std::min(refusal.size(), refusal.find('\n')));
        }
      });
}

bool qvn_db_has_columns(const PGresult* result, int columns) {
  if (PQnfields(result) >= columns) {
    return true;
  }
  QVN_LOG(kLogWarning, "The server answered with %d columns instead of %d\n", PQnfields(result),
          columns);
  return false;
}

int32_t qvn_db_data_select(PGconn* connection, const char* sql, pg_row_fn on_row) {
  return select_reported(connection, sql,
                         [&](int row, PGresult* result) { (void)on_row(row, result); });
}

int32_t qvn_db_data_select_p1(PGconn* connection, const char* sql, pg_row_context_fn on_row,
                              void* context) {
  return select_reported(connection, sql,
                         [&](int row, PGresult* result) { (void)on_row(row, result, context); });
}

int32_t qvn_get_max_record(PGconn* connection, const char* sql, int64_t* value, const char* label) {
  const int32_t rows = select(connection, sql, [&](int row, PGresult* result) {
    *value = qvn_pg_number<int64_t>(result, row, 0);
  });
  if (rows < 0) {
    QVN_LOG(kLogNotice, "Get %s max record id failed , PQstatus:%d, %s\n", qvn_or_empty(label),
            PQstatus(connection), PQerrorMessage(connection));
    return -1;
  }
  return 0;
}

int32_t qvn_db_data_copy_load(PGconn* connection, const char* sql, std::size_t columns,
                              pg_fields_fn on_row, int32_t* row_count, const char* label) {
  int32_t received = 0;
  const int32_t status = copy_load_fields(connection, sql, columns, label, received,
                                          [&](std::span<char*> fields) { (void)on_row(fields); });
  *row_count = received > 1 ? received : 0;
  return status;
}

int32_t qvn_db_data_copy_load_p1(PGconn* connection, const char* sql, pg_line_fn on_row,
                                 void* context, const char* label) {
  int32_t received = 0;
  return copy_load(connection, sql, label, received,
                   [&](char* row) { (void)on_row(row, context); });
}

int32_t qvn_db_data_copy_load_p2(PGconn* connection, const char* sql, std::size_t columns,
                                 pg_fields_context_fn on_row, void* context, const char* label) {
  int32_t received = 0;
  return copy_load_fields(connection, sql, columns, label, received,
                          [&](std::span<char*> fields) { (void)on_row(fields, context); });
}

int32_t qvn_db_data_copy_load_p3(PGconn* connection, const char* sql, std::size_t columns,
                                 pg_fields_extra_fn on_row, void* context, void* extra,
                                 const char* label) {
  int32_t received = 0;
  return copy_load_fields(connection, sql, columns, label, received,
                          [&](std::span<char*> fields) { (void)on_row(fields, context, extra); });
}

void pg_row_csv_parse(char* row, std::span<char*> fields) {
  split_row(row, fields);
}

void pg_row_csv_parse(char* row, std::span<std::string_view> fields) {
  split_row(row, fields);
}
