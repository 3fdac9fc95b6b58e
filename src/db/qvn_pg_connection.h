/// Connections to PostgreSQL: opening them, how long they may keep the daemon waiting, and the next
/// result of what was sent. What fails is logged here, once.
///
/// A connection belongs to its caller and is used by one thread at a time. A label is a short text
/// that names the caller in messages and, as application name, to the database's administrator; it
/// may be null.
#pragma once

#include <chrono>
#include <libpq-fe.h>
#include <memory>
#include <string>

struct pg_connection_close {
  void operator()(PGconn* connection) const noexcept { PQfinish(connection); }
};
using pg_connection = std::unique_ptr<PGconn, pg_connection_close>;

struct pg_result_clear {
  void operator()(PGresult* result) const noexcept { PQclear(result); }
};
using pg_owned_result = std::unique_ptr<PGresult, pg_result_clear>;

/// Opens a connection for as long as a job may take. Null, with a WARNING, when the server cannot
/// be reached or refuses. How long that may take is PGCONNECT_TIMEOUT; an idle connection whose
/// host dies breaks within a minute by TCP keep-alive, one that is being written to within a
/// quarter of an hour. A server that is alive may let the job wait as long as it likes.
[[nodiscard]] pg_connection qvn_pg_conn(const char* conninfo, const char* label);

/// As qvn_pg_conn, but nothing is logged: what keeps it from connecting is put into `failure`.
/// Throws std::bad_alloc when memory runs out.
[[nodiscard]] pg_connection qvn_pg_try_conn(const char* conninfo, const char* label,
                                            std::string& failure);

/// How long a short visit may take.
struct pg_visit_limits {
  std::chrono::milliseconds connect;    ///< until the login is done
  std::chrono::milliseconds statement;  ///< of each statement; the server itself ends it then
  std::chrono::milliseconds whole;      ///< all of it; then the connection is cut on this side
};

/// A visit's connection. No wait for it is longer than the limits: past them results are lost as
/// those of a broken connection.
class pg_visit {
 public:
  /// Connects. A server that refuses to limit statements (some poolers do) is asked without, now
  /// and, by `limits_statements`, at later visits. A failure is logged as by qvn_pg_conn.
  pg_visit(const char* conninfo, const char* label, const pg_visit_limits& limits,
           bool& limits_statements);
  pg_visit(const pg_visit&) = delete;
  pg_visit& operator=(const pg_visit&) = delete;

  /// Null when there is none.
  [[nodiscard]] PGconn* connection() const { return connection_.get(); }

  /// Whether this visit has been as long as a limit allows: the database does not answer in time.
  [[nodiscard]] bool ran_out() const;

  [[nodiscard]] std::chrono::milliseconds elapsed() const;

 private:
  using clock = std::chrono::steady_clock;

  pg_visit_limits limits_;
  clock::time_point begin_ = clock::now();
  clock::time_point end_ = begin_ + limits_.whole;  ///< the connection refers to it
  pg_connection connection_;
};

/// Sets what every connection of the process shares, unless the operator's environment says
/// otherwise. A dead database server must cost the poller seconds, not minutes; and looking for a
/// Kerberos ticket at every visit is work of an idle daemon for nothing. Before the first thread,
/// as the environment is not to be changed under threads.
void qvn_db_set_connection_defaults();

/// Seconds that a login may take: PGCONNECT_TIMEOUT, five where it holds no number above 0.
[[nodiscard]] std::chrono::seconds qvn_pg_connect_timeout();

/// The next result of what was sent; null when there is none left. When memory runs out over a
/// message libpq waits for one more byte, which may never come: here it is made to look again every
/// second, so that the caller goes on when there is memory again. Past a visit's end the connection
/// is cut, with a WARNING.
[[nodiscard]] pg_owned_result qvn_pg_next_result(PGconn* connection);
