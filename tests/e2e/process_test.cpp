// The daemon as a process: its arguments, its start and its ways to end.
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
using testing::MatchesRegex;
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

TEST(Process, VersionAndUsageActTheMomentTheyAreMet) {
  const char* kVersion =
      "qvn_web_helper Version: V1-Free-[^\n]+\n"
      "qvn_web_helper Compile Date : [A-Z][a-z]+ [0-9]+ [0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2}\n";
  const char* kUsage =
      "qvn_web_helper V1-Free, [^\n]+\n"
      "Usage: qvn_web_helper \\[OPTIONS\\]\n"
      "Valid Options:\n"
      "   -V\\[v\\]           Display version number and exit\n"
      "   -H\\[h\\]           His help screen\n"
      "   -nf             No forking\n"
      "   -kill           Shutdown the qvn_web_helper\n"
      "   -r              Connect to qvn_web_helper on this machine\n"
      "\n";
  const struct {
    std::vector<std::string> arguments;
    const char* out;
  } cases[] = {
      {{"-V"}, kVersion},        {{"-v"}, kVersion},        {{"-H"}, kUsage},
      {{"-h"}, kUsage},          {{"-x"}, kUsage},          {{""}, kUsage},
      {{"-nfx"}, kUsage},        {{"-x", "-V"}, kUsage},    {{"-V", "-x"}, kVersion},
      {{"-nf", "-V"}, kVersion}, {{"-kill", "-h"}, kUsage}, {{"-r", "-V"}, kVersion},
  };
  DaemonHarness daemon;
  for (const auto& c : cases) {
    const Ending ending = daemon.run(c.arguments);
    EXPECT_EQ(ending.status, 0);
    EXPECT_THAT(ending.out, MatchesRegex(c.out)) << testing::PrintToString(c.arguments);
  }
  EXPECT_TRUE(std::filesystem::is_empty(daemon.path() / "log"));
  EXPECT_FALSE(std::filesystem::exists(daemon.pid_file()));
}

TEST(Process, AFailedStartSaysWhyAndEndsInOrderWithStatus0) {
  const std::string good = support::database_section("good", 5432, "portal");
  const struct {
    const char* what;
    void (*spoil)(const DaemonHarness&);
    std::vector<std::string> lines;
  } cases[] = {
      {"no main file",
       [](const DaemonHarness& d) {
         std::filesystem::remove(d.path() / "conf/qvn_web_helper.conf");
       },
       {"[NOTICE] main:", "Read configuration...\n", "[WARNING] main:", "Load config failed\n"}},
      {"no conf folder",
       [](const DaemonHarness& d) { std::filesystem::remove_all(d.path() / "conf"); },
       {"Read configuration...\n", "Load config failed\n"}},
      {"no database list",
       [](const DaemonHarness& d) { std::filesystem::remove(d.path() / "conf/qvn_db_info.conf"); },
       {"Start all module initial...\n", "Start loading moule configuration\n",
        "[WARNING] qvn_db_conf:", "Can't open a ", "/conf/qvn_db_info.conf file\n",
        "[ERROR] qvn_db_conf:", "Loading database section configure failed\n",
        "[WARNING] qvn_core:", "Loading Database list configuration failed\n"}},
      {"a bad section between good ones",
       [](const DaemonHarness& d) {
         d.write_database_list(support::database_section("a", 5432, "first") +
                               support::database_section("b", 80, "bad") +
                               support::database_section("c", 5432, "last"));
       },
       {"Added a new db host 127.0.0.1 dbname last\n", "The db info bad configure invalid\n",
        "Alloc memory for db info 127.0.0.1-bad failed\n",
        "Added a new db host 127.0.0.1 dbname first\n",
        "Loading Database list configuration failed\n"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    DaemonHarness daemon;
    c.spoil(daemon);
    daemon.launch();
    EXPECT_EQ(daemon.wait_end().status, 0);
    std::vector<std::string> lines = c.lines;
    lines.insert(lines.end(), {kWaiting, "The log module exit...\n"});
    expect_in_order(daemon.log(), lines);
    EXPECT_THAT(daemon.log(), Not(HasSubstr("Start running")));
  }
}

TEST(Process, BadSettingsAreReportedAndTheDaemonStartsAllTheSame) {
  DaemonHarness daemon;
  daemon.write_main_conf(
      "[general]\nlog_level=9\nmax_log_size=0\n"
      "[CLI]\ncli_listen_port=80\n"
      "[rerate]\nmax_rerate_task=101\n[rate_upload]\nmax_rate_upload_task=4\n");
  daemon.start_foreground();
  expect_in_order(daemon.log(), {"The log level invalid  in the %s file, used the default level\n",
                                 "The max log file size MUST be in 1024 - 1024*1024(KB)\n",
                                 "The CLI server listen port MUST be in 1024 - 65534\n",
                                 "The max concurrent rerate task MUST be in 5 - 100\n",
                                 "The max concurrent rate upload task MUST be in 5 - 300\n",
                                 "Start running...\n"});
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

TEST(Process, ThePidFileNeedsItsFolder) {
  DaemonHarness daemon;
  std::filesystem::remove(daemon.path() / "run");
  const Ending ending = daemon.run({"-nf"});
  EXPECT_EQ(ending.status, 1);
  EXPECT_EQ(ending.out, "Open qvn_web_helper.pid file failure\n");
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

TEST(Process, KillWithNothingToStopIsSilent) {
  DaemonHarness daemon;
  // The line goes to a shell.
  for (const char* content : {"", "\n", "\n4711\n", "x\n", "999999999; touch log/planted\n",
                              "$(touch log/planted)\n", "999999999 999999998\n"}) {
    support::write_file(daemon.pid_file(), content);
    const Ending ending = daemon.run({"-kill"});
    EXPECT_EQ(ending.status, 0);
    EXPECT_EQ(ending.out + ending.err, "");
  }
  std::filesystem::remove(daemon.pid_file());
  const Ending ending = daemon.run({"-kill"});
  EXPECT_EQ(ending.status, 0);
  EXPECT_EQ(ending.out + ending.err, "");
  EXPECT_TRUE(std::filesystem::is_empty(daemon.path() / "log"));
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
