#include "db/qvn_pg_connection.h"

#include <algorithm>
#include <cstdlib>
#include <libpq-events.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <new>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>

#include "base/qvn_log.h"
#include "base/qvn_text.h"

namespace {

constexpr const char* kLogSource = "qvn_db";

using steady = std::chrono::steady_clock;

void set_option(int socket, int level, int option, int value) {
  (void)setsockopt(socket, level, option, &value, sizeof value);  // not on a Unix socket
}

/// A host that vanished must not keep a job for the two hours of the system's default. There is no
/// TCP_USER_TIMEOUT: it would also end the connection to a server that is alive and waits, for a
/// lock or a disk, in the middle of a COPY.
void limit_silence(const PGconn* connection) {
  constexpr int kIdleSeconds = 30;
  constexpr int kProbeSeconds = 10;
  constexpr int kProbes = 3;
  const int socket = PQsocket(connection);
  set_option(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
  set_option(socket, IPPROTO_TCP, TCP_KEEPIDLE, kIdleSeconds);
  set_option(socket, IPPROTO_TCP, TCP_KEEPINTVL, kProbeSeconds);
  set_option(socket, IPPROTO_TCP, TCP_KEEPCNT, kProbes);
}

/// Takes in what has arrived; false when the connection broke, which the next result reports.
/// Reads twice: the first read of a long TLS record leaves a rest in the TLS library, unseen by
/// poll.
bool read_arrived(PGconn* connection) {
  constexpr int kReads = 2;
  int good = 0;
  while (good < kReads && PQconsumeInput(connection) == 1) {
    ++good;
  }
  return good == kReads;
}

bool is_open(const pg_connection& connection) {
  return PQstatus(connection.get()) == CONNECTION_OK;
}

void log_failure(const char* label, const PGconn* connection) {
  QVN_LOG(kLogWarning, "%s DB connect failed, PQstatus:%d, %s\n", qvn_or_empty(label),
          PQstatus(connection), PQerrorMessage(connection));
}

void log_no_memory(const char* label) {
  QVN_LOG(kLogError, "Alloc memory for %s DB connection failed\n", qvn_or_empty(label));
}

/// The label stands in front: a password that ends in a backslash would swallow what follows it.
std::string labelled(const char* conninfo, const char* label) {
  return qvn_format("fallback_application_name='%s' %s", qvn_or_empty(label),
                    qvn_or_empty(conninfo));
}

/// A connection in whatever state; a good one is ready for its first statement. Throws
/// std::bad_alloc when memory runs out.
pg_connection open_connection(const char* conninfo, const char* label) {
  pg_connection connection(PQconnectdb(labelled(conninfo, label).c_str()));
  if (is_open(connection)) {
    limit_silence(connection.get());
    while (qvn_pg_next_result(connection.get())) {
    }
  }
  return connection;
}

// --- visits --------------------------------------------------------------------------------------

/// The key under which a visit's connection keeps its end.
int on_connection_event(PGEventId /*id*/, void* /*info*/, void* /*unused*/) {
  return 1;
}

bool set_end(PGconn* connection, steady::time_point* end) {
  return PQregisterEventProc(connection, on_connection_event, "visit", nullptr) == 1 &&
         PQsetInstanceData(connection, on_connection_event, end) == 1;
}

/// When the connection's visit ends; null for a connection without an end.
const steady::time_point* end_of(const PGconn* connection) {
  return static_cast<const steady::time_point*>(PQinstanceData(connection, on_connection_event));
}

/// Whole milliseconds from now on, none once it is past; rounded up, so that whoever waits for them
/// does not come back too early.
int milliseconds_until(steady::time_point end) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - steady::now());
  return static_cast<int>(std::max<long>(left.count(), 0));
}

/// Waits for the socket; false when the time is over.
bool wait_for_socket(const PGconn* connection, short events, steady::time_point end) {
  const int left = milliseconds_until(end);
  pollfd entry{.fd = PQsocket(connection), .events = events, .revents = 0};
  (void)poll(&entry, 1, left);
  return left > 0;
}

/// Goes on with the login until it is done, refused, or out of time; false for the last.
bool log_in(PGconn* connection, steady::time_point end) {
  PostgresPollingStatusType wanted = PGRES_POLLING_WRITING;  // until the socket is connected
  while (wanted == PGRES_POLLING_READING || wanted == PGRES_POLLING_WRITING) {
    const short events = wanted == PGRES_POLLING_READING ? POLLIN : POLLOUT;
    if (!wait_for_socket(connection, events, end)) {
      return false;
    }
    wanted = PQconnectPoll(connection);
  }
  return true;
}

/// The environment's server options and after them the limit, as a quoted value.
std::string options_with_limit(std::chrono::milliseconds statement) {
  const std::string plain =
      qvn_format("%s -c statement_timeout=%ld", qvn_or_empty(std::getenv("PGOPTIONS")),
                 static_cast<long>(statement.count()));
  std::string quoted;
  for (const char c : plain) {
    if (c == '\'' || c == '\\') {
      quoted += '\\';
    }
    quoted += c;
  }
  return quoted;
}

/// Some poolers know no such setting and say so: FATAL: unsupported startup parameter.
bool refuses_options(const PGconn* connection) {
  return std::string_view(PQerrorMessage(connection)).find("startup parameter") !=
         std::string_view::npos;
}

/// Starts a connection and logs in. Null, logged, when the time is over; else in whatever state.
/// Throws std::bad_alloc when memory runs out.
pg_connection open_until(const std::string& conninfo, const char* label, steady::time_point end) {
  pg_connection connection(PQconnectStart(conninfo.c_str()));
  if (!connection) {
    throw std::bad_alloc();
  }
  if (PQstatus(connection.get()) != CONNECTION_BAD && !log_in(connection.get(), end)) {
    QVN_LOG(kLogWarning, "%s DB connect failed, PQstatus:%d, connection to %s failed: %s\n",
            qvn_or_empty(label), static_cast<int>(CONNECTION_BAD),
            qvn_or_empty(PQhostaddr(connection.get())), "timeout expired");
    return nullptr;
  }
  return connection;
}

/// Null, logged, on failure. Throws std::bad_alloc when memory runs out.
pg_connection open_visit(const char* conninfo, const char* label, const pg_visit_limits& limits,
                         bool& limits_statements) {
  const auto end = steady::now() + limits.connect;
  const std::string text = labelled(conninfo, label);
  if (limits_statements) {
    pg_connection connection = open_until(
        qvn_format("options='%s' %s", options_with_limit(limits.statement).c_str(), text.c_str()),
        label, end);
    if (!connection || !refuses_options(connection.get())) {
      return connection;
    }
    limits_statements = false;
  }
  return open_until(text, label, end);
}

/// Ends a wait that has taken as long as the visit may: what was sent has no answer, and nothing
/// more is sent.
void cut(const PGconn* connection) {
  QVN_LOG(kLogWarning, "No answer in time from database %s at %s, connection cut\n",
          qvn_or_empty(PQdb(connection)), qvn_or_empty(PQhostaddr(connection)));
  (void)shutdown(PQsocket(connection), SHUT_RDWR);
}

}  // namespace

pg_connection qvn_pg_conn(const char* conninfo, const char* label) {
  try {
    pg_connection connection = open_connection(conninfo, label);
    if (is_open(connection)) {
      return connection;
    }
    log_failure(label, connection.get());
  } catch (const std::bad_alloc&) {
    log_no_memory(label);
  }
  return nullptr;
}

pg_connection qvn_pg_try_conn(const char* conninfo, const char* label, std::string& failure) {
  pg_connection connection = open_connection(conninfo, label);
  if (!is_open(connection)) {
    failure = PQerrorMessage(connection.get());
    connection.reset();
  }
  return connection;
}

pg_visit::pg_visit(const char* conninfo, const char* label, const pg_visit_limits& limits,
                   bool& limits_statements)
    : limits_(limits) {
  try {
    connection_ = open_visit(conninfo, label, limits, limits_statements);
    if (!connection_) {
      return;
    }
    if (!is_open(connection_)) {
      log_failure(label, connection_.get());
      connection_.reset();
    } else if (!set_end(connection_.get(), &end_)) {
      throw std::bad_alloc();
    }
  } catch (const std::bad_alloc&) {
    log_no_memory(label);
    connection_.reset();
  }
}

bool pg_visit::ran_out() const {
  return elapsed() >= (connection_ ? limits_.statement : limits_.connect);
}

std::chrono::milliseconds pg_visit::elapsed() const {
  return std::chrono::floor<std::chrono::milliseconds>(clock::now() - begin_);
}

void qvn_db_set_connection_defaults() {
  constexpr int kKeepExisting = 0;
  (void)setenv("PGCONNECT_TIMEOUT", "5", kKeepExisting);
  (void)setenv("PGGSSENCMODE", "disable", kKeepExisting);
}

std::chrono::seconds qvn_pg_connect_timeout() {
  constexpr long kDefault = 5;
  const long seconds = std::strtol(qvn_or_empty(std::getenv("PGCONNECT_TIMEOUT")), nullptr, 10);
  return std::chrono::seconds(seconds > 0 ? seconds : kDefault);
}

pg_owned_result qvn_pg_next_result(PGconn* connection) {
  constexpr int kLookAgainMilliseconds = 1000;
  const steady::time_point* const end = end_of(connection);
  while (PQisBusy(connection) == 1 && read_arrived(connection) && PQisBusy(connection) == 1) {
    int patience = kLookAgainMilliseconds;
    if (end) {
      patience = std::min(patience, milliseconds_until(*end));
      if (patience == 0) {
        cut(connection);
      }
    }
    pollfd entry{.fd = PQsocket(connection), .events = POLLIN, .revents = 0};
    (void)poll(&entry, 1, patience);
  }
  return pg_owned_result(PQgetResult(connection));
}
