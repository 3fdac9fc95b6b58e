#include "support/test_cluster.h"

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <netinet/in.h>
#include <random>
#include <sys/socket.h>
#include <unistd.h>

#include "support/shell.h"

namespace support {
namespace {

using std::string_literals::operator""s;

std::string connection_text(int port, const std::string& database) {
  return "hostaddr=" + std::string(TestCluster::kHost) + " port=" + std::to_string(port) +
         " dbname=" + database + " user=" + TestCluster::kUser +
         " password=" + TestCluster::kPassword + " connect_timeout=5";
}

}  // namespace

/// From below the range out of which the kernel gives ports to the connections of other tests.
int free_port() {
  std::random_device random;
  for (int attempt = 0; attempt < 1000; attempt++) {
    const int port = 15000 + static_cast<int>(random() % 15000);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    const bool free = bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    if (free)
      return port;
  }
  fprintf(stderr, "There is no free port\n");
  abort();
}

void Session::Close::operator()(pg_conn* connection) const {
  PQfinish(connection);
}

Session::Session(int port, const std::string& database)
    : connection_(PQconnectdb(connection_text(port, database).c_str())) {
  EXPECT_EQ(PQstatus(connection_.get()), CONNECTION_OK) << PQerrorMessage(connection_.get());
  // The portal's notices are of no interest here.
  PQsetNoticeProcessor(
      connection_.get(), [](void*, const char*) {}, nullptr);
}

std::vector<Row> Session::query(const std::string& sql) {
  PGresult* result = PQexec(connection_.get(), sql.c_str());
  const ExecStatusType status = PQresultStatus(result);
  EXPECT_TRUE(status == PGRES_TUPLES_OK || status == PGRES_COMMAND_OK)
      << PQresultErrorMessage(result) << sql;
  std::vector<Row> rows(static_cast<size_t>(PQntuples(result)));
  for (size_t row = 0; row < rows.size(); row++) {
    for (int column = 0; column < PQnfields(result); column++)
      rows[row].emplace_back(PQgetvalue(result, static_cast<int>(row), column));
  }
  PQclear(result);
  return rows;
}

std::string Session::value(const std::string& sql) {
  const std::vector<Row> rows = query(sql);
  return rows.empty() ? "" : rows[0][0];
}

TestCluster::TestCluster() : folder_("data/postmaster.pid"), port_(free_port()) {
  write_file(path() / "password", std::string(kPassword) + "\n");
  // The server refuses to run as root.
  if (geteuid() == 0) {
    shell(path(), "chown postgres .");
    as_server_ = "runuser -u postgres -- ";
  }
  run_or_die("initdb -D data -U "s + kUser +
             " -A scram-sha-256 --pwfile=password -E UTF8 --no-locale --no-sync");
  write_file(path() / "data/postgresql.auto.conf",
             "listen_addresses = '"s + kHost + "'\nunix_socket_directories = '" + path().string() +
                 "'\nfsync = off\nfull_page_writes = off\nshared_buffers = 32MB\n"
                 "max_connections = 200\nport = " +
                 std::to_string(port_) + "\n");
  run_or_die("pg_ctl -D data -l data/server.log start");
  create_database("template_portal");
}

TestCluster::~TestCluster() {
  run("pg_ctl -D data -m immediate stop");
}

Ending TestCluster::run(const std::string& program) const {
  return shell(path(), as_server_ + QVN_PG_BINDIR "/" + program);
}

void TestCluster::run_or_die(const std::string& program) const {
  const Ending ending = run(program);
  if (ending.status == 0)
    return;
  fprintf(stderr, "%s: %s%s%s\n", program.c_str(), ending.out.c_str(), ending.err.c_str(),
          read_file(path() / "data/server.log").c_str());
  abort();
}

void TestCluster::restart_immediate() const {
  run_or_die("pg_ctl -D data -l data/server.log -m immediate restart");
}

void TestCluster::offer_tls() {
  shell(path(), as_server_ +
                    "openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=portal -keyout "
                    "data/server.key -out data/server.crt");
  connect("postgres").query("ALTER SYSTEM SET ssl = on");
  connect("postgres").query("SELECT pg_reload_conf()");
  EXPECT_TRUE(wait_until([&] {
    return connect("postgres").value("SELECT ssl FROM pg_stat_ssl WHERE pid = pg_backend_pid()") ==
           "t";
  }));
}

void TestCluster::create_database(const std::string& name) {
  Session session = connect("postgres");
  if (name == "template_portal") {
    session.query("CREATE DATABASE template_portal");
    connect(name).query(read_file(QVN_SCHEMA));
    return;
  }
  session.query("CREATE DATABASE " + name + " TEMPLATE template_portal");
}

}  // namespace support
