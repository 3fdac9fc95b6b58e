#include "support/test_cluster.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <netinet/in.h>
#include <pwd.h>
#include <random>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support {
namespace {

using std::string_literals::operator""s;

constexpr const char* kInitdb = QVN_PG_BINDIR "/initdb";
constexpr const char* kPostgres = QVN_PG_BINDIR "/postgres";

std::string connection_text(int port, const std::string& database) {
  return "hostaddr=" + std::string(TestCluster::kHost) + " port=" + std::to_string(port) +
         " dbname=" + database + " user=" + TestCluster::kUser +
         " password=" + TestCluster::kPassword + " connect_timeout=5";
}

/// Starts a server program as a child that ends with this one; never as root, which the server
/// refuses.
pid_t start_as_server(const std::vector<std::string>& command, const std::string& folder) {
  const passwd* user = geteuid() == 0 ? getpwnam("postgres") : nullptr;
  if (geteuid() == 0 && user == nullptr) {
    fprintf(stderr, "There is no user postgres to run the server as\n");
    abort();
  }
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& word : command)
    arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  const pid_t child = fork();
  if (child != 0)
    return child;
  if (user != nullptr &&
      (setgroups(0, nullptr) != 0 || setgid(user->pw_gid) != 0 || setuid(user->pw_uid) != 0))
    _exit(126);
  prctl(PR_SET_PDEATHSIG, SIGQUIT);
  const int log = open((folder + "/server.log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (chdir(folder.c_str()) != 0 || dup2(log, 1) < 0 || dup2(log, 2) < 0)
    _exit(126);
  execv(arguments[0], arguments.data());
  _exit(127);
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

TestCluster::TestCluster() : folder_("data/postmaster.pid") {
  const std::string folder = folder_.path().string();
  if (geteuid() == 0) {
    const passwd* user = getpwnam("postgres");
    if (user == nullptr || chown(folder.c_str(), user->pw_uid, user->pw_gid) != 0)
      abort();
  }
  write_file(folder_.path() / "password", std::string(kPassword) + "\n");
  const pid_t child = start_as_server(
      {kInitdb, "-D", folder + "/data", "-U", kUser, "-A", "scram-sha-256",
       "--pwfile=" + folder + "/password", "-E", "UTF8", "--no-locale", "--no-sync"},
      folder);
  int status = -1;
  waitpid(child, &status, 0);
  if (status != 0) {
    fprintf(stderr, "initdb failed: %s\n", read_file(folder_.path() / "server.log").c_str());
    abort();
  }
  start();
  create_database("template_portal");
}

TestCluster::~TestCluster() {
  stop(true);
}

void TestCluster::start() {
  const std::string folder = folder_.path().string();
  const auto ready = [&] {
    return PQping(connection_text(port_, "postgres").c_str()) == PQPING_OK;
  };
  // The port stays the same over a restart, for the daemons know it; another one is tried at first
  // only.
  const bool first = port_ == 0;
  for (int attempt = 0; attempt < 5; attempt++) {
    if (first)
      port_ = free_port();
    server_ = start_as_server(
        {kPostgres, "-D", folder + "/data", "-p", std::to_string(port_), "-c",
         "listen_addresses=" + std::string(kHost), "-c", "unix_socket_directories=" + folder, "-c",
         "fsync=off", "-c", "full_page_writes=off", "-c", "shared_buffers=32MB", "-c",
         "max_connections=200"},
        folder);
    bool gone = false;
    wait_until([&] { return ready() || (gone = waitpid(server_, nullptr, WNOHANG) == server_); });
    if (!gone && ready())
      return;
  }
  fprintf(stderr, "PostgreSQL does not start: %s\n",
          read_file(folder_.path() / "server.log").c_str());
  abort();
}

void TestCluster::stop(bool immediate) {
  if (server_ <= 0)
    return;
  kill(server_, immediate ? SIGQUIT : SIGINT);
  waitpid(server_, nullptr, 0);
  server_ = -1;
}

void TestCluster::offer_tls() {
  const std::string folder = folder_.path().string();
  const pid_t child = start_as_server(
      {"/usr/bin/openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=portal",
       "-keyout", folder + "/server.key", "-out", folder + "/server.crt"},
      folder);
  waitpid(child, nullptr, 0);
  for (const std::string& setting : {"ssl_cert_file='" + folder + "/server.crt'",
                                     "ssl_key_file='" + folder + "/server.key'", "ssl=on"s})
    connect("postgres").query("ALTER SYSTEM SET " + setting);
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
