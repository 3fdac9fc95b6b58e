#include <array>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "base/qvn_log_state.h"
#include "base/qvn_socket.h"
#include "support/log_fixture.h"

namespace {

using namespace std::chrono_literals;
using support::lines_of;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr uint32_t kQueueLimit = 100'001;
constexpr uint32_t kUsualSize = 300 * 1024 * 1024;

constexpr const char* kLogSource = "log_test";

class log_test : public support::log_fixture {
 protected:
  void SetUp() override {
    g_log_rotate = 1;
    log_fixture::SetUp();
  }
  void TearDown() override {
    qvn_log_set_size(kUsualSize);
    log_fixture::TearDown();
  }

  /// Lets the log thread's next turn look at the size, and waits until it has and has written what
  /// it said itself.
  static void force_size_check(int64_t next = 0) {
    drain();
    g_check_log_tv = next;
    ASSERT_TRUE(support::wait_until([next] { return g_check_log_tv != next; }));
    ASSERT_EQ(qvn_log_print_content(""), 0);
    drain();
    drain();
  }

  /// Whether a program that the process starts has the log open.
  [[nodiscard]] bool is_inherited() const {
    return std::system(("ls -l /proc/self/fd | grep -q " + path_).c_str()) == 0;
  }
};

TEST_F(log_test, a_line_is_time_level_source_line_and_message) {
  EXPECT_EQ(qvn_log_print("qvn_core", 42, kLogNotice, 0, "Start %s...\n", "running"), 0);
  drain();
  const std::string line = lines_of(path_).back();
  tm parts{};
  const char* const rest = strptime(line.c_str(), "%Y-%m-%d %H:%M:%S", &parts);
  EXPECT_STREQ(rest, "  [NOTICE] qvn_core:42 Start running...");
  const time_t age = time(nullptr) - mktime(&parts);
  EXPECT_TRUE(age >= 0 && age < 60) << line;
}

TEST_F(log_test, levels_have_labels) {
  for (const uint32_t level : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U}) {
    qvn_log_print(level == 6 ? nullptr : "m", 1, level, 1, "x\n");
  }
  EXPECT_EQ(qvn_log_print_content("100 %s as it is\n"), 0);
  EXPECT_EQ(qvn_log_print_content(nullptr), 0);
  EXPECT_THAT(lines(), ElementsAre("[EMERGENCY] m x", "[ALERT] m x", "[CRITICAL] m x",
                                   "[ERROR] m x", "[WARNING] m x", "[NOTICE] m x", "[INFO]  x",
                                   "[DEBUG] m x", " m x", "100 %s as it is"));
}

TEST_F(log_test, a_line_is_cut_at_2047_characters) {
  const std::string message(3000, 'x');
  const std::string start = "2024-03-05 09:15:00  [DEBUG] m:1 ";
  qvn_log_print("m", 1, kLogDebug, 0, "%.*s\n", static_cast<int>(2047 - start.size()),
                message.c_str());
  qvn_log_print_content("\n");
  qvn_log_print(message.c_str(), 1, kLogDebug, 0, "y\n");
  drain();
  const std::vector<std::string> lines = lines_of(path_);
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[1].size(), 2047U);
  EXPECT_THAT(lines[1], EndsWith("m:1 " + message.substr(0, 2047 - start.size())));
  EXPECT_EQ(lines[2].size(), 2047U);
}

TEST_F(log_test, changes_of_level_and_size_are_logged) {
  for (const uint32_t size : {10'485'760U, 0U, 3'000'000'000U}) {
    qvn_log_set_size(size);
  }
  drain();  // the level that holds when a line is written decides
  EXPECT_EQ(qvn_log_set_level(kLogInfo), 0);
  EXPECT_EQ(qvn_log_set_level(9), 0) << "changes nothing";
  EXPECT_EQ(qvn_log_print("m", 1, kLogDebug, 0, "filtered\n"), -1);
  EXPECT_EQ(qvn_log_print("m", 1, kLogDebug, 1, "forced\n"), 0);
  EXPECT_THAT(lines(), ElementsAre("[DEBUG] qvn_log Changed log file size to 10485760",
                                   "[DEBUG] qvn_log Changed log file size to -1294967296",
                                   "[NOTICE] qvn_log Changed log level to [INFO]",
                                   "[NOTICE] qvn_log Changed log level to ", "[DEBUG] m forced"));
}

TEST_F(log_test, the_file_is_opened_once_closed_and_turned_to_another) {
  const std::string other = directory_ + "other.log";
  const std::string none = directory_ + "none/x.log";
  EXPECT_EQ(qvn_log_file_open(other.c_str(), kLogError, 1), -2);
  EXPECT_FALSE(std::filesystem::exists(other));
  QVN_LOG(kLogDebug, "first\n");
  drain();
  EXPECT_EQ(qvn_log_file_reopen(nullptr), 0);
  EXPECT_EQ(qvn_log_file_reopen(other.c_str()), 0);
  QVN_LOG(kLogInfo, "second\n");
  EXPECT_THAT(lines_in(other), ElementsAre("[INFO] log_test second"));
  EXPECT_EQ(qvn_log_file_reopen(none.c_str()), -3);
  QVN_LOG(kLogInfo, "lost\n");
  drain();
  EXPECT_EQ(qvn_log_file_reopen(path_.c_str()), 0) << "no file is open";
  EXPECT_EQ(qvn_log_file_open(nullptr, kLogError, 0), 0);
  EXPECT_EQ(qvn_log_file_open(none.c_str(), kLogError, 0), -3);
  EXPECT_EQ(qvn_log_file_open(path_.c_str(), kLogInfo, 0), 0) << "appends";
  EXPECT_THAT(lines(), ElementsAre(EndsWith("first"), EndsWith("Changed log level to [INFO]")));
}

TEST_F(log_test, rotation_cycles_through_five_files) {
  qvn_log_set_size(1);
  drain();
  for (const int number : {1, 2, 3, 4, 5, 1, 2}) {
    EXPECT_FALSE(is_inherited());
    const std::vector<std::string> before = lines_of(path_);
    const std::string size = std::to_string(std::filesystem::file_size(path_));
    force_size_check();
    EXPECT_EQ(lines_of(path_ + "." + std::to_string(number)), before);
    EXPECT_THAT(lines_in(path_), ElementsAre("[NOTICE] qvn_log The logfile size as " + size +
                                             "(0 KB), exceeded limit 1(0 KB)"));
  }
  EXPECT_FALSE(std::filesystem::exists(path_ + ".6"));
}

TEST_F(log_test, a_file_is_rotated_at_the_limit_and_not_below) {
  qvn_log_set_size(1500);
  drain();
  qvn_log_print_content(std::string(1499 - std::filesystem::file_size(path_), 'y').c_str());
  force_size_check();
  EXPECT_FALSE(std::filesystem::exists(path_ + ".1"));
  qvn_log_print_content("z");
  force_size_check();
  EXPECT_TRUE(std::filesystem::exists(path_ + ".1"));
  EXPECT_THAT(lines_of(path_), ElementsAre(EndsWith("as 1500(1 KB), exceeded limit 1500(1 KB)")));
}

TEST_F(log_test, a_file_that_was_moved_is_made_again_at_the_size_check) {
  const std::string moved = directory_ + "moved";
  std::filesystem::rename(path_, moved);
  std::filesystem::create_directory(path_);  // which cannot be opened: the old file stays
  force_size_check();
  QVN_LOG(kLogInfo, "first\n");
  drain();
  std::filesystem::remove(path_);
  force_size_check();
  QVN_LOG(kLogInfo, "second\n");
  EXPECT_THAT(lines_in(path_), ElementsAre(HasSubstr("opened it again"), EndsWith("second")));
  EXPECT_FALSE(is_inherited());
  EXPECT_THAT(lines_of(moved).back(), EndsWith("first"));
}

TEST_F(log_test, size_checks_keep_their_rhythm_when_the_clock_is_stepped_back) {
  qvn_log_set_size(1);
  force_size_check();
  EXPECT_GT(g_check_log_tv, time(nullptr) + 200);
  ASSERT_TRUE(std::filesystem::remove(path_ + ".1"));
  force_size_check(time(nullptr) + 100'000);
  EXPECT_LE(g_check_log_tv, time(nullptr) + 300);
  EXPECT_FALSE(std::filesystem::exists(path_ + ".2")) << "put forward, not due";
}

// A log file that takes nothing while it is not read: the log thread stands still in its write.
TEST_F(log_test, exactly_the_limit_of_lines_waits_and_callers_are_not_held_up) {
  const std::string fifo = directory_ + "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const qvn_fd reader(open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  ASSERT_EQ(fcntl(reader.get(), F_SETPIPE_SZ, 4096), 4096);
  ASSERT_EQ(qvn_log_file_reopen(fifo.c_str()), 0);
  // Two fillers fit into the pipe; the third stays in the log thread's hands.
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(qvn_log_print_content((std::string(2000, '.') + "\n").c_str()), 0);
  }
  EXPECT_TRUE(support::wait_until([] { return g_curr_log_que_size == 1; }));
  EXPECT_EQ(qvn_log_print("m", 1, kLogDebug, 0, "queued before\n"), 0);
  qvn_log_set_level(kLogInfo);
  EXPECT_EQ(qvn_log_print("m", 1, kLogDebug, 0, "refused after\n"), -1);
  uint32_t queued = g_curr_log_que_size;
  while (queued <= kQueueLimit && qvn_log_print("m", 1, kLogInfo, 0, "a line %u\n", queued) == 0) {
    ++queued;
  }
  EXPECT_EQ(queued, kQueueLimit);
  EXPECT_EQ(g_curr_log_que_size, kQueueLimit);
  EXPECT_EQ(qvn_log_print_content("x\n"), -1);
  EXPECT_EQ(qvn_log_print("m", 1, kLogInfo, 1, "forced\n"), -1);
  EXPECT_FALSE(qvn_log_drain(10ms));
  std::string written;
  std::array<char, 65536> buffer;
  for (bool all = false; !all;) {
    all = qvn_log_drain(0ms);
    for (ssize_t got; (got = read(reader.get(), buffer.data(), buffer.size())) > 0;) {
      written.append(buffer.data(), static_cast<std::size_t>(got));
    }
  }
  EXPECT_THAT(written, EndsWith("a line 100000\n"));
  EXPECT_THAT(written, Not(HasSubstr("queued before"))) << "the level of now decides";
  EXPECT_THAT(written, HasSubstr("Changed log level to [INFO]\n"));
  EXPECT_EQ(g_curr_log_que_size, 0U);
  EXPECT_EQ(qvn_log_file_reopen(path_.c_str()), 0);
  EXPECT_EQ(qvn_log_print("m", 1, kLogInfo, 0, "room again\n"), 0);
}

// Level, size, file and bound loggers change while others log: the thread sanitizer looks on.
TEST_F(log_test, settings_may_change_while_others_log) {
  std::atomic<bool> stop{false};
  std::thread producer([&stop] {
    while (!stop) {
      QVN_LOG(kLogInfo, "line\n");
    }
  });
  for (uint32_t i = 0; i < 50; ++i) {
    qvn_log_set_level(i % 8);
    qvn_log_set_size(1 + i);
    g_check_log_tv = 0;
    EXPECT_EQ(qvn_log_file_reopen(path_.c_str()), 0);
    EXPECT_EQ(qvn_log_add_bind_logger(1'000'000, i % 8), 0);
    EXPECT_EQ(qvn_log_bind_logger_set_level(1'000'000, 0), 0);
    EXPECT_EQ(qvn_log_add_unbind_logger(1'000'000), 0);
  }
  stop = true;
  producer.join();
}

/// The messages that have arrived, each line in a piece of its own.
std::string messages_at(const qvn_fd& socket) {
  std::string text;
  std::array<char, 4096> buffer;
  for (ssize_t got; (got = recv(socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0;) {
    const std::string_view line(buffer.data(), static_cast<std::size_t>(got));
    text += line.substr(line.rfind(' ') + 1);
  }
  return text;
}

TEST_F(log_test, bound_loggers_have_their_own_level_and_stop_nobody) {
  qvn_fd loggers[3];  // one whose reader is gone, one at level DEBUG, one that is bound twice
  qvn_fd readers[3];
  for (int i = 0; i < 3; ++i) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    loggers[i].reset(ends[0]);
    readers[i].reset(ends[1]);
  }
  readers[0].reset(-1);
  const auto print_both = [] {
    EXPECT_EQ(qvn_log_print("m", 1, kLogDebug, 0, "debug\n"), 0) << "queued although filtered";
    EXPECT_EQ(qvn_log_print("m", 1, kLogWarning, 0, "warning\n"), 0);
    drain();
  };
  qvn_log_set_level(kLogError);
  drain();
  const int twice = loggers[2].get();
  EXPECT_EQ(qvn_log_add_bind_logger(loggers[0].get(), kLogDebug), 0);
  EXPECT_EQ(qvn_log_add_bind_logger(twice, kLogWarning), 0);
  EXPECT_EQ(qvn_log_add_bind_logger(loggers[1].get(), kLogDebug), 0);
  EXPECT_EQ(qvn_log_add_bind_logger(twice, kLogWarning), 0);
  print_both();
  EXPECT_EQ(messages_at(readers[1]), "debug\nwarning\n");
  EXPECT_EQ(messages_at(readers[2]), "warning\nwarning\n");
  EXPECT_EQ(qvn_log_add_unbind_logger(twice), 0);
  EXPECT_EQ(qvn_log_bind_logger_set_level(twice, kLogDebug), 0);
  print_both();
  EXPECT_EQ(messages_at(readers[2]), "debug\nwarning\n");
  EXPECT_THAT(lines(), ElementsAre(HasSubstr("Changed")));
  for (int i = 0; i < 2000; ++i) {  // more than a pipe without a reader can take
    EXPECT_EQ(qvn_log_print_content((std::string(2000, 'x') + "\n").c_str()), 0);
  }
  EXPECT_EQ(lines_in(path_).size(), 2002U);
  EXPECT_EQ(qvn_log_add_unbind_logger(twice), 0);
  EXPECT_EQ(qvn_log_add_unbind_logger(twice), 0) << "not bound: no error";
  EXPECT_EQ(qvn_log_bind_logger_set_level(twice, 3), 0) << "not bound: no error";
}

TEST_F(log_test, wrong_parameters_of_bound_loggers_are_logged) {
  EXPECT_EQ(qvn_log_add_bind_logger(-1, kLogDebug) + qvn_log_add_bind_logger(5, 8) +
                qvn_log_add_unbind_logger(-1) + qvn_log_bind_logger_set_level(-1, kLogDebug) +
                qvn_log_bind_logger_set_level(5, 8),
            -5);
  const std::string input = "[ERROR] qvn_log Invalid input parameter";
  const std::string level = "[ERROR] qvn_log Invalid log level or invalid fd";
  EXPECT_THAT(lines(), testing::UnorderedElementsAre(input, input, input, level, level));
}

TEST_F(log_test, exit_writes_what_is_queued_and_later_lines_are_never_seen) {
  for (int i = 0; i < 1000; ++i) {
    QVN_LOG(kLogInfo, "%d\n", i);
  }
  qvn_log_exit();
  EXPECT_EQ(lines().back(), "[NOTICE] qvn_log The log module exit...");
  EXPECT_EQ(lines_of(path_).size(), 1002U);
  EXPECT_EQ(qvn_log_print("m", 1, kLogInfo, 0, "late\n"), 0);
  EXPECT_FALSE(qvn_log_drain(60s)) << "its writer has ended";
  qvn_log_uninit();
  EXPECT_EQ(g_curr_log_que_size, 0U);
  EXPECT_TRUE(qvn_log_drain(0ms));
  EXPECT_EQ(lines_of(path_).size(), 1002U);
}

TEST(log_life_cycle, every_function_is_safe_before_init_after_uninit_and_twice) {
  for (int round = 0; round < 4; ++round) {
    qvn_log_exit();
    qvn_log_uninit();
    qvn_log_file_close();
    EXPECT_EQ(qvn_log_file_reopen("/") + qvn_log_set_level(kLogDebug), 0);
    EXPECT_EQ(qvn_log_add_bind_logger(0, kLogDebug) + qvn_log_add_unbind_logger(0), 0);
    EXPECT_EQ(qvn_log_print("m", 1, kLogInfo, 0, "early\n"), 0);
    EXPECT_FALSE(qvn_log_drain(0ms));
    if (round % 2 == 1) {
      EXPECT_EQ(qvn_log_init() + qvn_log_init(), 0);
      EXPECT_TRUE(qvn_log_drain(60s)) << "what was queued before is dropped";
    }
  }
  qvn_log_exit();
  qvn_log_uninit();
}

}  // namespace
