// The operator console of the real daemon over real sockets: who is heard, and clients that mean no
// good. What is answered stands in tests/pages/console.md.
#include "support/console.h"

#include <cstring>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

#include "base/qvn_sanitizer.h"
#include "base/qvn_socket.h"
#include "support/daemon_harness.h"
#include "support/test_cluster.h"

namespace {

using support::Console;
using support::DaemonHarness;
using testing::HasSubstr;

constexpr const char* kHelp =
    "\nCLI command list\n"
    "   ----------Command\tDescription------------------------------\r\n"
    "            get_conf\tshow current configuration\r\n"
    "         reload_conf\treload configuration\r\n";
/// What the sanitizers make of memory and processor time is their own affair.
constexpr bool kSanitized = QVN_ADDRESS_SANITIZER || QVN_THREAD_SANITIZER;

/// A daemon whose console has these settings beside its port, serving no database.
std::unique_ptr<DaemonHarness> daemon_with(const std::string& console) {
  auto daemon = std::make_unique<DaemonHarness>();
  daemon->set_console(console);
  daemon->write_main_conf("[general]\nlog_level=7\n");
  daemon->start();
  return daemon;
}

/// Whether the console answers.
bool answers(const Console& console) {
  console.send("help\r\n");
  return console.read(std::strlen(kHelp)) == kHelp;
}

/// Processor time of the daemon so far, in seconds.
double seconds_of(const DaemonHarness& daemon) {
  clockid_t clock{};
  timespec used{};
  EXPECT_EQ(clock_getcpuclockid(daemon.pid(), &clock) | clock_gettime(clock, &used), 0);
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

TEST(Console, limit_counts_connections_and_descriptors_that_ran_out_are_waited_for_briefly) {
  auto daemon = daemon_with("");  // the limit is 2
  Console first(daemon->console_port());
  ASSERT_TRUE(first.log_in());
  Console second(daemon->console_port());
  EXPECT_TRUE(daemon->wait_log("connected, fd as", 2));
  const Console third(daemon->console_port());
  EXPECT_TRUE(third.closes());
  EXPECT_TRUE(
      daemon->wait_log("Maximum connection in progress, can't accept a new connect request, "
                       "initial connection 1, auth connection 1"));
  second.abort();
  EXPECT_TRUE(daemon->wait_log("recv error"));
  const rlimit none{0, 4096};
  const rlimit enough{1024, 4096};
  ASSERT_EQ(prlimit(daemon->pid(), RLIMIT_NOFILE, &none, nullptr), 0);
  const Console fourth(daemon->console_port());
  EXPECT_TRUE(daemon->wait_log("The  CLI socket accept error"));
  ASSERT_EQ(prlimit(daemon->pid(), RLIMIT_NOFILE, &enough, nullptr), 0);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(fourth.log_in());
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST(Console, only_the_newest_connection_can_log_in) {
  auto daemon = daemon_with("cli_connection_limit=3\n");
  Console older(daemon->console_port());
  EXPECT_TRUE(daemon->wait_log("connected, fd as", 1));
  Console newer(daemon->console_port());
  EXPECT_TRUE(daemon->wait_log("connected, fd as", 2));
  older.send("login\r\n");  // thrown away
  EXPECT_TRUE(newer.log_in());
  older.send("login\r\n");  // the newest now
  EXPECT_EQ(older.read(23), "Welcome to web helper\r\n");
  // An older one that leaves makes room.
  Console oldest(daemon->console_port());
  EXPECT_TRUE(daemon->wait_log("connected, fd as", 3));
  newer.send("logout\r\n");
  EXPECT_TRUE(newer.closes());  // which is the last thing that its thread does with it
  const Console last(daemon->console_port());
  EXPECT_TRUE(daemon->wait_log("connected, fd as", 4));
  oldest.abort();
  EXPECT_TRUE(support::wait_until([&] {
    const Console next(daemon->console_port());
    return next.connected() && next.log_in();
  }));
}

TEST(Console, idle_limit_is_renewed_by_known_words_only) {
  auto daemon = daemon_with("cli_connection_expires=10\ncli_connection_limit=2\n");
  const Console idle(daemon->console_port());
  ASSERT_TRUE(idle.log_in());
  const Console busy(daemon->console_port());
  ASSERT_TRUE(busy.log_in());
  EXPECT_TRUE(support::wait_until([&] {
    idle.send("nonsense\r\n");
    busy.send("heartbeat\r\n");
    return idle.closes(0);
  }));
  EXPECT_TRUE(answers(busy));
}

// --- clients that mean no good -------------------------------------------------------------------

/// Whether another console is served as if it were alone.
void expect_service(const DaemonHarness& daemon) {
  const Console console(daemon.console_port());
  ASSERT_TRUE(console.log_in());
  EXPECT_TRUE(answers(console));
  console.send("logout\r\n");
  EXPECT_TRUE(console.closes());
}

TEST(ConsoleHardships, clients_that_never_read_or_stream_without_end_disturb_nobody) {
  auto daemon = daemon_with("cli_connection_limit=20\ncli_login_user=a\ncli_login_pwd=b\n");
  // Never reads its answers, after the login and before it.
  const Console deaf(daemon->console_port(), 1024);
  ASSERT_TRUE(deaf.log_in("a b"));
  std::string requests, refused;
  for (int i = 0; i < 20'000; ++i) {
    requests += "help\r\n";
    refused += "login x y\r\n";
  }
  deaf.send_what_fits(requests);
  const Console streaming(daemon->console_port());
  ASSERT_TRUE(streaming.log_in("a b"));
  const Console refused_and_deaf(daemon->console_port(), 1024);
  refused_and_deaf.send_what_fits(refused);
  const Console streaming_older(daemon->console_port());
  const Console streaming_newest(daemon->console_port());
  const std::string junk(65536, 'x');
  const auto stream = [&] {
    for (const Console* console : {&streaming, &streaming_older, &streaming_newest})
      (void)console->send_what_fits(junk);
    (void)deaf.send_what_fits(requests);
  };
  for (int i = 0; i < 100; ++i)  // until every buffer on the way is full
    stream();
  const long memory = daemon->holdings().memory;
  const double before = seconds_of(*daemon);
  const auto begin = std::chrono::steady_clock::now();
  std::chrono::duration<double> passed{};
  for (int i = 0; passed.count() < 2; ++i) {
    stream();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    passed = std::chrono::steady_clock::now() - begin;
  }
  const double busy = (seconds_of(*daemon) - before) / passed.count();
  std::printf("share of a core: %.4f\n", busy);
  EXPECT_LT(busy, kSanitized ? 0.5 : 0.25);
  EXPECT_LT(daemon->holdings().memory - memory, kSanitized ? 65536 : 2048);
  {
    const Console console(daemon->console_port());
    ASSERT_TRUE(console.log_in("a b"));
    EXPECT_TRUE(answers(console));
  }
  // The daemon's end does not wait for any of them.
  daemon->send(SIGTERM);
  EXPECT_EQ(daemon->wait_end().status, 0);
}

TEST(ConsoleHardships, a_thousand_connections_at_once_leave_nothing_behind) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_max < 4096)
    GTEST_SKIP() << "needs 4,096 descriptors";
  limit.rlim_cur = 4096;
  setrlimit(RLIMIT_NOFILE, &limit);
  // Descriptors that the daemon inherits push its own above 1,023.
  std::vector<int> inherited;
  inherited.reserve(100);
  for (int i = 0; i < 100; ++i)
    inherited.push_back(dup(2));
  auto daemon = daemon_with("cli_connection_limit=1000\n");
  for (const int fd : inherited)
    close(fd);
  expect_service(*daemon);
  // Once at the log's beginning, and once more when all modules have been started.
  EXPECT_TRUE(support::wait_until(
      [&] { return support::count_of(daemon->log(), "Changed log level to") == 2; }));
  // At most: the connection just served may still be on its way out.
  const support::Holdings before = daemon->holdings();
  for (int round = 0; round < 2; ++round) {
    std::vector<Console> all;
    for (int i = 0; i < 1000; ++i) {
      all.emplace_back(daemon->console_port());
      ASSERT_TRUE(all.back().connected() && all.back().log_in()) << i;
    }
    EXPECT_TRUE(Console(daemon->console_port()).closes());  // one too many
    for (const Console& console : all)
      console.send("help\r\n");
    for (const Console& console : all)
      ASSERT_EQ(console.read(std::strlen(kHelp)), kHelp);
    EXPECT_GE(daemon->holdings().threads, 1000);
    for (size_t i = 0; i < all.size(); i += 3)
      all[i].abort();
    all.clear();
    EXPECT_TRUE(support::wait_until([&] {
      const support::Holdings now = daemon->holdings();
      return now.descriptors <= before.descriptors && now.threads <= before.threads;
    }));
  }
  expect_service(*daemon);
}

TEST(ConsoleHardships, a_command_is_answered_when_the_poll_cycle_ends) {
  constexpr int kDatabases = 3;
  const int silent = support::free_port();
  const qvn_fd never_answers(
      qvn_tcp_socket_and_listen("127.0.0.1", static_cast<uint16_t>(silent), 100));
  DaemonHarness daemon;
  std::string list;
  for (int i = 0; i < kDatabases; ++i) {
    const std::string name = "db" + std::to_string(i);
    list += support::database_section(name, silent, name);
  }
  daemon.write_database_list(list);
  setenv("PGCONNECT_TIMEOUT", "2", 1);
  daemon.start();
  unsetenv("PGCONNECT_TIMEOUT");
  const Console console(daemon.console_port());
  ASSERT_TRUE(console.log_in());
  // The cycle is at its first database; the answer comes before the next cycle's first.
  ASSERT_TRUE(daemon.wait_log("WEB task DB connect failed", 1));
  console.send("get_conf\r\n");
  EXPECT_THAT(console.read_until("rows)\r\n"), HasSubstr("(3 rows)"));
  EXPECT_LE(support::count_of(daemon.log(), "WEB task DB connect failed"), kDatabases);
  expect_service(daemon);  // commands without the list are answered at once
}

}  // namespace
