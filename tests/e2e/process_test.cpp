// The daemon as a process that runs, and its ways to end; tests/pages/process.md has what ends by
// itself.
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include "support/console.h"
#include "support/daemon_harness.h"

namespace {

using support::DaemonHarness;
using support::Ending;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kTermination =
    "Receiving the termination signal, the qvn_web_helper start exit...\n";
constexpr const char* kWaiting = "Waiting for qvn_web_helper exit...\n";

/// That the texts occur in this order.
void expect_in_order(const std::string& whole, const std::vector<std::string>& texts) {
  size_t at = 0;
  for (const std::string& text : texts) {
    const size_t found = whole.find(text, at);
    EXPECT_NE(found, std::string::npos) << "missing or misplaced: " << text << "in:\n" << whole;
    if (found != std::string::npos)
      at = found + text.size();
  }
}

TEST(Process, ASecondInstanceLeavesTheFirstAlone) {
  DaemonHarness daemon;
  daemon.start();
  const std::string pid = support::read_file(daemon.pid_file());
  EXPECT_EQ(pid, std::to_string(daemon.pid()) + "\n");
  const Ending second = daemon.run({"-nf"});
  EXPECT_EQ(second.status, 0);
  EXPECT_EQ(second.out, "qvn_web_helper already running...\n");
  EXPECT_TRUE(daemon.runs());
  EXPECT_EQ(support::read_file(daemon.pid_file()), pid);
}

TEST(Process, AStalePidFileIsTakenOver) {
  DaemonHarness daemon;
  support::write_file(daemon.pid_file(), "99999999999\nkept tail\n");
  daemon.start();
  const std::string content = support::read_file(daemon.pid_file());
  const std::string line = std::to_string(daemon.pid()) + "\n";
  EXPECT_EQ(content, line + std::string("99999999999\nkept tail\n").substr(line.size()));
}

TEST(Process, WithoutALogFolderTheDaemonRunsAndEnds) {
  DaemonHarness daemon;
  std::filesystem::remove(daemon.path() / "log");
  daemon.start_foreground();  // and says what it does: standard error needs no folder
  daemon.send(SIGTERM);
  daemon.wait_end();
  daemon.launch();
  EXPECT_TRUE(support::wait_until([&] { return !support::read_file(daemon.pid_file()).empty(); }));
  EXPECT_EQ(daemon.run({"-kill"}).status, 0);
  EXPECT_EQ(daemon.wait_end().status, 0);
}

TEST(Process, KillEndsTheDaemonWithBothClosingLines) {
  DaemonHarness daemon;
  sigset_t blocked;
  sigfillset(&blocked);
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"-kill"}, {"-nf", "-kill"}, {"-kill", "-r"}}) {
    // Whatever its starter has blocked.
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    daemon.start();
    sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
    // The two other signals are caught and change nothing.
    daemon.send(SIGHUP);
    daemon.send(SIGINT);
    EXPECT_EQ(daemon.run(arguments).status, 0);
    EXPECT_EQ(daemon.wait_end().status, 0);
    expect_in_order(daemon.log(), {"Start running...\n", kTermination, kWaiting});
    EXPECT_TRUE(daemon.log().ends_with(kWaiting)) << daemon.log();
  }
}

TEST(Process, AFileThatMayNotGrowEndsNobody) {
  DaemonHarness daemon;
  daemon.start();
  const rlimit none{0, RLIM_INFINITY};
  const rlimit any{RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(prlimit(daemon.pid(), RLIMIT_FSIZE, &none, nullptr), 0);
  EXPECT_TRUE(support::Console(daemon.console_port()).log_in());  // which is logged
  ASSERT_EQ(prlimit(daemon.pid(), RLIMIT_FSIZE, &any, nullptr), 0);
  EXPECT_TRUE(support::Console(daemon.console_port()).log_in());
  EXPECT_TRUE(daemon.wait_log("Start CLI '127.0.0.1:"));
}

TEST(Process, InTheForegroundSigtermKillsWithoutAWord) {
  DaemonHarness daemon;
  daemon.start_foreground();
  daemon.send(SIGTERM);
  const Ending ending = daemon.wait_end();
  EXPECT_EQ(ending.status, -SIGTERM);
  EXPECT_THAT(ending.err, Not(HasSubstr(kTermination)));
}

}  // namespace
