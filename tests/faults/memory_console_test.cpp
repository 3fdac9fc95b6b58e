// Memory runs out in a reload, a console session or the daemon's start.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include "faults/memory_table.h"
#include "support/console.h"

namespace {

using faults::FaultTable;
using faults::Sweep;
using support::Console;
using support::DaemonHarness;
using support::wait_until;
using testing::HasSubstr;

const char* const kLogin = "an_operator_of_the_daemon its_password_takes_memory";

/// A daemon that a console asks.
class ConsoleSweep {
 public:
  ConsoleSweep() {
    const std::vector<std::string> databases = {"console_1", "console_2"};
    for (const std::string& database : databases)
      e2e::drop_database(database);
    daemon_ = e2e::daemon_for(databases);
    daemon_->set_console(
        "cli_login_user=an_operator_of_the_daemon\ncli_login_pwd=its_password_takes_memory\n");
    daemon_->write_main_conf("[general]\nlog_level=7\n");
  }

  FaultTable& memory() { return memory_; }
  DaemonHarness& daemon() { return *daemon_; }

  /// One session with these commands and a logout; all that was answered. The failures are those of
  /// the thread named, from the login on or before.
  std::string session(const std::string& commands, const std::string& thread = "", uint32_t n = 0,
                      bool from_then_on = false, bool after_login = false) {
    MemoryTarget& listener = memory_.watch(0, "qvn_console");
    MemoryTarget& served = memory_.watch(1, "console");
    target_ = thread == "console" ? &served : &listener;
    target_->from_then_on = from_then_on;
    target_->fail_at = after_login ? 0 : n;
    const Console console(daemon_->console_port());
    const bool welcome = console.log_in(kLogin);
    if (after_login) {
      target_->seen = 0;
      target_->fail_at = n;
    }
    console.send(commands + "logout\r\n");
    const std::string answers = console.read(1 << 20);
    target_->fail_at = 0;
    EXPECT_TRUE(wait_until([&] { return served.begun == served.ended; }));
    return (welcome ? "" : "no welcome") + answers;
  }

  /// Lets one allocation of the thread fail after the other; `look` sees the answers.
  template <class Look>
  void sweep(const char* name, const std::string& commands, const std::string& thread,
             bool after_login, Look look) {
    const std::string whole = session(commands);
    memory_.remember_rest();
    for (const bool from_then_on : {false, true}) {
      Sweep figures{name, from_then_on};
      bool reached = true;
      for (uint32_t n = 1; reached && !testing::Test::HasFailure(); n++) {
        SCOPED_TRACE(std::string(name) + (from_then_on ? " all from " : " ") + std::to_string(n));
        const std::string answers = session(commands, thread, n, from_then_on, after_login);
        reached = figures.count(n, *target_);
        look(answers, whole);
        EXPECT_EQ(session(commands), whole);
      }
      figures.print();
    }
    EXPECT_TRUE(daemon_->runs());
    memory_.expect_rest();
  }

 private:
  FaultTable memory_;
  std::unique_ptr<DaemonHarness> daemon_;
  MemoryTarget* target_ = nullptr;
};

constexpr const char* kReloaded = "DB configuration file is reloaded successfully\r\n";

TEST(Memory, AReloadSaysWhetherAllDatabasesAreServedWhicheverAllocationFails) {
  ConsoleSweep console;
  console.daemon().start();
  console.sweep(
      "reload", "reload_conf\r\n", "console", true,
      [&](const std::string& answers, const std::string& whole) {
        EXPECT_THAT(whole, HasSubstr(kReloaded));
        // A database that found no memory is left out, and the log says so.
        if (answers.find(kReloaded) != std::string::npos && answers != whole) {
          EXPECT_TRUE(console.daemon().wait_log("Alloc memory for db info 127.0.0.1-console_"));
        }
        EXPECT_THAT(console.session("reload_conf\r\n"), HasSubstr(kReloaded));
      });
}

TEST(Memory, AConsoleSessionEndsInOrderWhicheverAllocationFails) {
  ConsoleSweep console;
  console.daemon().start();
  for (const char* thread : {"qvn_console", "console"}) {
    console.sweep(thread, "get_conf\r\nhelp\r\nheartbeat\r\nnonsense\r\n", thread, false,
                  [](const std::string& answers, const std::string& whole) {
                    EXPECT_TRUE(answers == whole || answers.size() < whole.size()) << answers;
                  });
  }
}

TEST(Memory, AStartEndsWithALineOrServesWhicheverAllocationFails) {
  if (QVN_COVERAGE)
    GTEST_SKIP() << "What counts the coverage does not survive an end without memory";
  ConsoleSweep world;
  FaultTable& memory = world.memory();
  const std::string output = world.daemon().path() / "start";
  for (const bool from_then_on : {false, true}) {
    Sweep figures{"start", from_then_on};
    bool reached = true;
    for (uint32_t n = 1; reached && !testing::Test::HasFailure(); n++) {
      SCOPED_TRACE("start " + std::to_string(n));
      MemoryTarget& target = memory.watch(2, "main");
      MemoryTarget& listener = memory.watch(0, "qvn_console");
      target.from_then_on = from_then_on;
      target.fail_at = n;
      memory->running = false;
      const int file =
          open(output.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
      const pid_t process = world.daemon().start_with({"-nf"}, file, file, file);
      close(file);
      int status = 0;
      bool ended = false;
      EXPECT_TRUE(wait_until([&] {
        return memory->running || (ended = waitpid(process, &status, WNOHANG) == process);
      }));
      target.fail_at = 0;
      reached = figures.count(n, target);
      if (ended) {
        EXPECT_TRUE(WIFEXITED(status) && reached) << status << support::read_file(output);
        EXPECT_TRUE(from_then_on || !support::read_file(output).empty());
        continue;
      }
      // A thread that did not start is told of, if there is memory for that.
      EXPECT_TRUE(from_then_on || wait_until([&] {
                    return listener.begun > 0 ||
                           support::read_file(output).find("can't be started") != std::string::npos;
                  }));
      // It is nobody's who does not know the password.
      if (listener.begun > 0) {
        EXPECT_FALSE(Console(world.daemon().console_port()).log_in(""));
        // A database that found no memory is left out, and the log says so.
        EXPECT_TRUE(world.session("get_conf\r\n").find("(2 rows)") != std::string::npos ||
                    support::read_file(output).find("Alloc memory for db info") !=
                        std::string::npos)
            << support::read_file(output);
      }
      EXPECT_EQ(waitpid(process, &status, WNOHANG), 0) << status << support::read_file(output);
      kill(process, SIGKILL);
      waitpid(process, &status, 0);
    }
    figures.print();
  }
}

}  // namespace
