#include "rate_upload/rate_write.h"

#include <new>
#include <string>
#include <vector>

#include "base/qvn_log.h"
#include "base/qvn_stopwatch.h"
#include "db/qvn_pg_rows.h"
#include "rate_upload/rate_copy_line.h"
#include "rate_upload/rate_statements.h"
#include "rate_upload/rate_upload_task.h"

namespace {

constexpr const char* kLogSource = "qvn_rate_upload";

constexpr std::size_t kCopyBufferSize = std::size_t{64} * 1024;

/// Statements sent in one text: alone, each would cost more by its way and its planning than by its
/// work.
constexpr std::size_t kBatchSize = 4000;

void log_copy_failure(const PGconn* connection) {
  QVN_LOG(kLogNotice, "PQputCopyData failed, PQstatus:%d, %s\n", PQstatus(connection),
          PQerrorMessage(connection));
}

bool start_copy(rate_upload_task& task) {
  PGconn* const connection = task.connection.get();
  const pg_owned_result result = qvn_pg_start_copy(connection, kRateCopy);
  if (PQresultStatus(result.get()) <= PGRES_COPY_IN) {
    return true;
  }
  QVN_LOG(kLogWarning, "PQexec failed, PQstatus:%d, %s\n", PQstatus(connection),
          PQerrorMessage(connection));
  task.outcome.fail("Copy rate header failed");
  return false;
}

/// Hands the buffered lines to the connection, and empties the buffer. False, logged, when it does
/// not take them.
bool send_lines(rate_upload_task& task, std::string& buffer, uint32_t& lines) {
  PGconn* const connection = task.connection.get();
  if (PQputCopyData(connection, buffer.data(), static_cast<int>(buffer.size())) != 1) {
    log_copy_failure(connection);
    return false;
  }
  task.figures.inserted += lines;
  lines = 0;
  buffer.clear();
  return true;
}

/// Sends every record and frees it; stops, with false, at the first failure. Throws std::bad_alloc
/// when memory runs out.
bool send_records(rate_upload_task& task) {
  import_list& imports = task.data->imports;
  rate_copy_lines copy_lines(task.row.rate_table_id);
  std::string buffer;
  buffer.reserve(kCopyBufferSize + kCopyBufferSize / 8);
  uint32_t lines = 0;
  while (!imports.empty()) {
    copy_lines.append(buffer, *imports.first());
    imports.pop();
    ++lines;
    if (buffer.size() >= kCopyBufferSize && !send_lines(task, buffer, lines)) {
      return false;
    }
  }
  return buffer.empty() || send_lines(task, buffer, lines);
}

/// Ends the COPY, so that the server keeps all of it or, unless all was sent, nothing. A failed
/// task keeps its reason.
void end_copy(rate_upload_task& task, bool all_sent) {
  PGconn* const connection = task.connection.get();
  bool ended = true;
  if (PQputCopyEnd(connection, all_sent ? nullptr : "sending the rates failed") != 1) {
    log_copy_failure(connection);
    ended = false;
  }
  // A connection that was lost is still in COPY, which ends the results.
  qvn_pg_drain(connection, [&](const PGresult* result) {
    if (qvn_pg_has_error(result)) {
      log_copy_failure(connection);
      task.outcome.fail("Copy rate failed");
    }
  });
  // The server has said nothing. What the reconciliation lacked is then all that is known.
  if (!all_sent || !ended) {
    task.outcome.fail(task.data->statements_lost ? kMemoryShortage : "");
  }
}

void copy_rates(rate_upload_task& task) {
  if (task.data->imports.empty()) {
    return;
  }
  const qvn_stopwatch stopwatch(task.figures.copy_seconds);
  if (!start_copy(task)) {
    return;
  }
  bool all_sent = false;
  try {
    all_sent = send_records(task);
  } catch (const std::bad_alloc&) {
    // Caught here, as the connection must leave its COPY before the row's final update.
    task.log_memory_shortage();
    task.outcome.fail(kMemoryShortage);
  }
  end_copy(task, all_sent);
}

/// Sends statements from the top of the list, and takes them off it. False when the connection is
/// lost: what is left cannot be sent.
bool send_batch(PGconn* connection, const rate_statement_writer& writer, statement_list& list,
                const char* label, uint32_t& count) {
  const std::vector<rate_statement> statements = writer.joinable(list, kBatchSize);
  for (std::size_t i = 0; i < statements.size(); ++i) {
    list.pop();
  }
  if (statements.size() > 1 &&
      qvn_db_try_update(connection, writer.joined(statements).c_str()) == 0) {
    count += static_cast<uint32_t>(statements.size());
    return true;
  }
  // A server error has undone the whole text: one by one, the others still take effect.
  for (const rate_statement& statement : statements) {
    const bool lost = PQstatus(connection) != CONNECTION_OK;
    (void)qvn_db_update(connection, writer.text(statement).c_str(),
                        label);  // logged there, once when lost
    if (lost) {
      return false;
    }
    ++count;
  }
  return true;
}

/// Carries out what is queued, if anything, under that progress. Throws std::bad_alloc when memory
/// runs out.
void send_all(rate_upload_task& task, const char* progress, const rate_statement_writer& writer,
              statement_list& list, const char* label, int64_t& seconds, uint32_t& count) {
  if (list.empty()) {
    return;
  }
  rate_upload_task_progress_update(task, progress, upload_status::writing);
  const qvn_stopwatch stopwatch(seconds);
  while (!list.empty() && send_batch(task.connection.get(), writer, list, label, count)) {
  }
  list.clear();
}

}  // namespace

void rate_upload_write(rate_upload_task& task) {
  rate_upload_task_progress_update(task, "Import rate to database", upload_status::writing);
  copy_rates(task);
  if (task.outcome.failed()) {
    task.data->imports.clear();  // the final row may need the memory
    return;
  }
  // After the new rates: a failed COPY leaves the old ones as they are.
  send_all(task, "Update old rate end date", rate_statement_writer(task.row.rate_end_date),
           task.data->updates, kRateUploadLabel, task.figures.update_seconds, task.figures.updated);
  send_all(task, "Delete repeating old rate", rate_statement_writer(), task.data->deletions,
           "Rate Delete", task.figures.deletion_seconds, task.figures.deleted);
}
