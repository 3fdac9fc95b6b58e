// Signals and limits that reach a daemon that runs; tests/pages/process.md has the rest of its
// life.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include "support/console.h"
#include "support/daemon_harness.h"

namespace {

using support::DaemonHarness;

constexpr const char* kClosing =
    "(.|\n)*Start running(.|\n)*Receiving the termination signal, the qvn_web_helper start "
    "exit...\n"
    "[^\n]*Waiting for qvn_web_helper exit...\n";

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
    EXPECT_THAT(daemon.log(), testing::MatchesRegex(kClosing));
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

}  // namespace
