#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "base/qvn_log.h"
#include "base/qvn_log_state.h"
#include "base/qvn_socket.h"
#include "support/temp_dir.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

constexpr uint32_t kQueueLimit = 100'001;
constexpr uint32_t kUsualSize = 300 * 1024 * 1024;
constexpr auto kDeadline = 60s;

constexpr const char* kLogSource = "log_test";

std::vector<std::string> lines_of(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// What a line says behind its timestamp; a line without one as it is.
std::string without_time(const std::string& line) {
  const std::size_t at = line.find("  ");
  return at == std::string::npos ? line : line.substr(at + 2);
}

/// Each test has the logger to itself: started, with an open file at level DEBUG whose first line,
/// on the level, is there already.
class Log : public testing::Test {
 protected:
  void SetUp() override {
    g_log_rotate = 1;
    ASSERT_EQ(qvn_log_init(), 0);
    ASSERT_EQ(qvn_log_file_open(path_.c_str(), kLogDebug, 0), 0);
    drain();
  }
  void TearDown() override {
    qvn_log_set_size(kUsualSize);
    qvn_log_exit();
    qvn_log_uninit();
    qvn_log_file_close();
  }

  static void drain() { ASSERT_TRUE(qvn_log_drain(kDeadline)); }

  /// The written lines after the first, without their times.
  std::vector<std::string> lines() {
    drain();
    std::vector<std::string> result;
    for (const std::string& line : lines_of(path_)) {
      result.push_back(without_time(line));
    }
    result.erase(result.begin(), result.begin() + std::min<std::ptrdiff_t>(1, std::ssize(result)));
    return result;
  }

  /// Waits until the log thread has come round once more and has written what it said itself.
  static void let_the_log_thread_come_round() {
    ASSERT_EQ(qvn_log_print_content(""), 0);
    drain();
    drain();
  }

  /// Lets the log thread's next turn look at the size and waits until it has.
  static void force_size_check() {
    g_check_log_tv = 0;
    ASSERT_TRUE(support::wait_until([] { return g_check_log_tv != 0; }));
    let_the_log_thread_come_round();
  }

  /// Whether the process has the path open, and no program that it starts has.
  static bool is_closed_on_exec(const std::string& path) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      if (std::filesystem::read_symlink(entry.path(), gone) == path) {
        return (fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC) != 0;
      }
    }
    return false;
  }

  const support::TempDir folder_{""};
  const std::string directory_ = folder_.path().string() + "/";
  const std::string path_ = directory_ + "test.log";
};

TEST_F(Log, ALineIsTimeLevelSourceLineAndMessage) {
  EXPECT_EQ(qvn_log_print("qvn_core", 42, kLogNotice, 0, "Start %s...\n", "running"), 0);
  drain();
  const std::string line = lines_of(path_).back();
  tm parts{};
  const char* const rest = strptime(line.c_str(), "%Y-%m-%d %H:%M:%S", &parts);
  EXPECT_STREQ(rest, "  [NOTICE] qvn_core:42 Start running...");
  const time_t age = time(nullptr) - mktime(&parts);
  EXPECT_TRUE(age >= 0 && age < 60) << line;
}

TEST_F(Log, LabelsOfTheLevels) {
  for (const uint32_t level : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U}) {
    qvn_log_print("m", 1, level, 1, "x\n");
  }
  qvn_log_print(nullptr, 7, kLogInfo, 0, "x\n");
  EXPECT_EQ(qvn_log_print_content("100 %s as it is\n"), 0);
  EXPECT_EQ(qvn_log_print_content(nullptr), 0);
  EXPECT_THAT(lines(),
              ElementsAre("[EMERGENCY] m:1 x", "[ALERT] m:1 x", "[CRITICAL] m:1 x", "[ERROR] m:1 x",
                          "[WARNING] m:1 x", "[NOTICE] m:1 x", "[INFO] m:1 x", "[DEBUG] m:1 x",
                          " m:1 x", "[INFO] :7 x", "100 %s as it is"));
}

TEST_F(Log, ALineIsCutAt2047Characters) {
  const std::string message(3000, 'x');
  const std::string start = "2024-03-05 09:15:00  [DEBUG] m:1 ";
  QVN_LOG(kLogDebug, "%s", "\n");
  qvn_log_print("m", 1, kLogDebug, 0, "%.*s\n", static_cast<int>(2047 - start.size()),
                message.c_str());
  qvn_log_print_content("\n");
  qvn_log_print(message.c_str(), 1, kLogDebug, 0, "y\n");
  drain();
  const std::vector<std::string> lines = lines_of(path_);
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[2].size(), 2047U);
  EXPECT_THAT(lines[2], EndsWith("m:1 " + message.substr(0, 2047 - start.size())));
  EXPECT_EQ(lines[3].size(), 2047U);
}

TEST_F(Log, ChangesOfLevelAndSizeAreLogged) {
  qvn_log_set_size(10'485'760);
  qvn_log_set_size(0);
  qvn_log_set_size(3'000'000'000);
  drain();  // the level that holds when a line is written decides
  qvn_log_set_level(kLogInfo);
  EXPECT_EQ(qvn_log_set_level(9), 0) << "changes nothing";
  EXPECT_EQ(qvn_log_print("m", 1, kLogDebug, 0, "filtered\n"), -1);
  EXPECT_EQ(qvn_log_print("m", 1, kLogDebug, 1, "forced\n"), 0);
  EXPECT_THAT(
      lines(),
      ElementsAre(EndsWith("Changed log file size to 10485760"),
                  EndsWith("Changed log file size to -1294967296"),
                  MatchesRegex(R"(\[NOTICE\] qvn_log:[0-9]+ Changed log level to \[INFO\])"),
                  MatchesRegex(R"(\[NOTICE\] qvn_log:[0-9]+ Changed log level to )"),
                  "[DEBUG] m:1 forced"));
}

TEST_F(Log, TheFileIsOpenedOnceClosedAndTurnedToAnother) {
  const std::string other = directory_ + "other.log";
  EXPECT_EQ(qvn_log_file_open(other.c_str(), kLogError, 1), -2);
  EXPECT_FALSE(std::filesystem::exists(other));
  QVN_LOG(kLogDebug, "first\n");
  drain();
  EXPECT_EQ(qvn_log_file_reopen(nullptr), 0);
  EXPECT_EQ(qvn_log_file_reopen(other.c_str()), 0);
  QVN_LOG(kLogInfo, "second\n");
  drain();
  EXPECT_THAT(lines_of(other), ElementsAre(EndsWith("second")));
  EXPECT_EQ(qvn_log_file_reopen((directory_ + "none/x.log").c_str()), -3);
  QVN_LOG(kLogInfo, "lost\n");
  drain();
  EXPECT_EQ(qvn_log_file_reopen(path_.c_str()), 0) << "no file is open";
  EXPECT_EQ(qvn_log_file_open(nullptr, kLogError, 0), 0);
  EXPECT_EQ(qvn_log_file_open((directory_ + "none/x.log").c_str(), kLogError, 0), -3);
  EXPECT_EQ(qvn_log_file_open(path_.c_str(), kLogInfo, 0), 0) << "appends";
  EXPECT_THAT(lines(), ElementsAre(EndsWith("first"), EndsWith("Changed log level to [INFO]")));
}

TEST_F(Log, RotationCyclesThroughFiveFiles) {
  qvn_log_set_size(1);
  drain();
  for (const int number : {1, 2, 3, 4, 5, 1, 2}) {
    EXPECT_TRUE(is_closed_on_exec(path_));
    const std::vector<std::string> before = lines_of(path_);
    const std::string size = std::to_string(std::filesystem::file_size(path_));
    force_size_check();
    EXPECT_EQ(lines_of(path_ + "." + std::to_string(number)), before);
    EXPECT_THAT(lines_of(path_),
                ElementsAre(MatchesRegex(R"(.*  \[NOTICE\] qvn_log:[0-9]+ The logfile size as )" +
                                         size + R"(\(0 KB\), exceeded limit 1\(0 KB\))")));
  }
  EXPECT_FALSE(std::filesystem::exists(path_ + ".6"));
}

TEST_F(Log, AFileIsRotatedAtTheLimitAndNotBelow) {
  qvn_log_set_size(1500);
  drain();
  qvn_log_print_content(std::string(1499 - std::filesystem::file_size(path_), 'y').c_str());
  drain();
  force_size_check();
  EXPECT_FALSE(std::filesystem::exists(path_ + ".1"));
  qvn_log_print_content("z");
  drain();
  force_size_check();
  EXPECT_TRUE(std::filesystem::exists(path_ + ".1"));
  EXPECT_THAT(lines_of(path_), ElementsAre(EndsWith("as 1500(1 KB), exceeded limit 1500(1 KB)")));
}

TEST_F(Log, AFileThatWasMovedIsMadeAgainAtTheSizeCheck) {
  std::filesystem::rename(path_, directory_ + "moved");
  std::filesystem::create_directory(path_);  // which cannot be opened: the old file stays
  force_size_check();
  QVN_LOG(kLogInfo, "first\n");
  drain();
  EXPECT_THAT(lines_of(directory_ + "moved").back(), EndsWith("first"));
  std::filesystem::remove(path_);
  force_size_check();
  QVN_LOG(kLogInfo, "second\n");
  drain();
  EXPECT_THAT(lines_of(path_), ElementsAre(HasSubstr("opened it again"), EndsWith("second")));
  EXPECT_TRUE(is_closed_on_exec(path_));
  EXPECT_THAT(lines_of(directory_ + "moved").back(), EndsWith("first"));
}

TEST_F(Log, SizeChecksKeepTheirRhythmWhenTheClockIsSteppedBack) {
  qvn_log_set_size(1);
  drain();
  force_size_check();
  EXPECT_GT(g_check_log_tv, time(nullptr) + 200);
  ASSERT_TRUE(std::filesystem::remove(path_ + ".1"));
  g_check_log_tv = time(nullptr) + 100'000;
  ASSERT_TRUE(support::wait_until([] { return g_check_log_tv <= time(nullptr) + 300; }));
  let_the_log_thread_come_round();
  EXPECT_FALSE(std::filesystem::exists(path_ + ".2")) << "put forward, not due";
}

/// A log file that takes nothing while nobody reads it: the log thread stands still in its write.
class StalledLog : public Log {
 protected:
  void SetUp() override {
    Log::SetUp();
    drain();
    const std::string fifo = directory_ + "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    reader_.reset(open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    ASSERT_EQ(qvn_log_file_reopen(fifo.c_str()), 0);
    // Two fillers to a page of the pipe; the first one too many stays in the log thread's hands.
    const std::string filler = std::string(2000, '.') + "\n";
    const auto fitting = static_cast<uint32_t>(fcntl(reader_.get(), F_GETPIPE_SZ)) / 2048;
    for (uint32_t i = 0; i < fitting + 2; ++i) {
      ASSERT_EQ(qvn_log_print_content(filler.c_str()), 0);
    }
    ASSERT_TRUE(support::wait_until([&] {
      int bytes = 0;
      ioctl(reader_.get(), FIONREAD, &bytes);
      return static_cast<std::size_t>(bytes) == fitting * filler.size() && g_curr_log_que_size == 1;
    }));
  }
  void TearDown() override {
    (void)read_all();
    Log::TearDown();
  }

  /// Reads until every queued line is through.
  std::string read_all() {
    std::string text;
    std::array<char, 65536> buffer;
    const auto read_some = [&] {
      for (ssize_t got; (got = read(reader_.get(), buffer.data(), buffer.size())) > 0;) {
        text.append(buffer.data(), static_cast<std::size_t>(got));
      }
    };
    EXPECT_TRUE(support::wait_until([&] {
      read_some();
      return qvn_log_drain(0ms);
    }));
    read_some();
    return text;
  }

  qvn_fd reader_;
};

TEST_F(StalledLog, LevelIsTheOneThatHoldsWhenALineIsWritten) {
  EXPECT_EQ(qvn_log_print("m", 1, kLogDebug, 0, "queued before\n"), 0);
  qvn_log_set_level(kLogInfo);
  EXPECT_EQ(qvn_log_print("m", 1, kLogDebug, 0, "refused after\n"), -1);
  const std::string written = read_all();
  EXPECT_THAT(written, Not(HasSubstr("queued before")));
  EXPECT_THAT(written, HasSubstr("Changed log level to [INFO]\n"));
}

TEST_F(StalledLog, ExactlyTheLimitOfLinesWaitsAndCallersAreNotHeldUp) {
  uint32_t queued = g_curr_log_que_size;
  while (qvn_log_print("m", 1, kLogInfo, 0, "a line %u\n", queued) == 0) {
    ++queued;
    ASSERT_LE(queued, kQueueLimit);
  }
  EXPECT_EQ(queued, kQueueLimit);
  EXPECT_EQ(g_curr_log_que_size, kQueueLimit);
  EXPECT_EQ(qvn_log_print_content("x\n"), -1);
  EXPECT_EQ(qvn_log_print("m", 1, kLogInfo, 1, "forced\n"), -1);
  EXPECT_FALSE(qvn_log_drain(10ms));
  EXPECT_THAT(read_all(), EndsWith("a line 100000\n"));
  EXPECT_EQ(g_curr_log_que_size, 0U);
  EXPECT_EQ(qvn_log_print("m", 1, kLogInfo, 0, "room again\n"), 0);
}

// Level, size, file and bound loggers change while others log: the thread sanitizer looks on.
TEST_F(Log, SettingsMayChangeWhileOthersLog) {
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

/// The two ends of a connection; the logger is bound to one, the test reads the other.
struct connection {
  connection() {
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    logger.reset(ends[0]);
    reader.reset(ends[1]);
  }
  ~connection() { qvn_log_add_unbind_logger(logger.get()); }

  /// What has arrived, without the times.
  [[nodiscard]] std::vector<std::string> arrived() const {
    EXPECT_TRUE(qvn_log_drain(kDeadline));
    std::string text;
    std::array<char, 4096> buffer;
    for (ssize_t got; (got = recv(reader.get(), buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0;) {
      text.append(buffer.data(), static_cast<std::size_t>(got));
    }
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
      lines.push_back(without_time(line));
    }
    return lines;
  }

  qvn_fd logger;
  qvn_fd reader;
};

TEST_F(Log, ABoundLoggerHasItsOwnLevel) {
  qvn_log_set_level(kLogError);
  drain();
  const connection debug;
  const connection twice;
  ASSERT_EQ(qvn_log_add_bind_logger(debug.logger.get(), kLogDebug), 0);
  ASSERT_EQ(qvn_log_add_bind_logger(twice.logger.get(), kLogWarning), 0);
  ASSERT_EQ(qvn_log_add_bind_logger(twice.logger.get(), kLogWarning), 0);
  EXPECT_EQ(qvn_log_print("m", 1, kLogDebug, 0, "debug\n"), 0) << "queued although filtered";
  EXPECT_EQ(qvn_log_print("m", 1, kLogWarning, 0, "warning\n"), 0);
  EXPECT_THAT(debug.arrived(), ElementsAre("[DEBUG] m:1 debug", "[WARNING] m:1 warning"));
  EXPECT_THAT(twice.arrived(), ElementsAre("[WARNING] m:1 warning", "[WARNING] m:1 warning"));
  EXPECT_THAT(lines(), ElementsAre(HasSubstr("Changed")));
  EXPECT_EQ(qvn_log_add_unbind_logger(twice.logger.get()), 0);
  EXPECT_EQ(qvn_log_bind_logger_set_level(twice.logger.get(), kLogDebug), 0);
  EXPECT_EQ(qvn_log_print("m", 1, kLogDebug, 0, "debug\n"), 0);
  EXPECT_THAT(twice.arrived(), ElementsAre("[DEBUG] m:1 debug"));
  EXPECT_EQ(qvn_log_add_unbind_logger(twice.logger.get()), 0);
  EXPECT_EQ(qvn_log_add_unbind_logger(twice.logger.get()), 0) << "not bound: no error";
  EXPECT_EQ(qvn_log_bind_logger_set_level(twice.logger.get(), 3), 0) << "not bound: no error";
}

TEST_F(Log, WrongParametersOfBoundLoggersAreLogged) {
  EXPECT_EQ(qvn_log_add_bind_logger(-1, kLogDebug), -1);
  EXPECT_EQ(qvn_log_add_bind_logger(5, 8), -1);
  EXPECT_EQ(qvn_log_add_unbind_logger(-1), -1);
  EXPECT_EQ(qvn_log_bind_logger_set_level(-1, kLogDebug), -1);
  EXPECT_EQ(qvn_log_bind_logger_set_level(5, 8), -1);
  EXPECT_THAT(
      lines(),
      ElementsAre(EndsWith("Invalid input parameter"), EndsWith("Invalid input parameter"),
                  EndsWith("Invalid input parameter"), EndsWith("Invalid log level or invalid fd"),
                  EndsWith("Invalid log level or invalid fd")));
}

TEST_F(Log, ALoggerThatNeverReadsOrIsGoneStopsNobody) {
  const connection never_reads;
  connection gone;
  gone.reader.reset(-1);
  ASSERT_EQ(qvn_log_add_bind_logger(never_reads.logger.get(), kLogDebug), 0);
  ASSERT_EQ(qvn_log_add_bind_logger(gone.logger.get(), kLogDebug), 0);
  const std::string text = std::string(2000, 'x') + "\n";
  for (int i = 0; i < 2000; ++i) {
    ASSERT_EQ(qvn_log_print_content(text.c_str()), 0);
  }
  drain();
  EXPECT_EQ(lines_of(path_).size(), 2001U);
}

TEST_F(Log, ExitWritesWhatIsQueuedAndLaterLinesAreNeverSeen) {
  for (int i = 0; i < 1000; ++i) {
    QVN_LOG(kLogInfo, "%d\n", i);
  }
  qvn_log_exit();
  EXPECT_THAT(lines_of(path_).back(),
              MatchesRegex(R"(.*  \[NOTICE\] qvn_log:[0-9]+ The log module exit\.\.\.)"));
  EXPECT_EQ(lines_of(path_).size(), 1002U);
  EXPECT_EQ(qvn_log_print("m", 1, kLogInfo, 0, "late\n"), 0);
  EXPECT_FALSE(qvn_log_drain(kDeadline)) << "nobody is left to write it";
  qvn_log_uninit();
  EXPECT_EQ(g_curr_log_que_size, 0U);
  EXPECT_TRUE(qvn_log_drain(0ms));
  EXPECT_EQ(lines_of(path_).size(), 1002U);
}

TEST(LogLifeCycle, EveryFunctionIsSafeBeforeInitAfterUninitAndTwice) {
  for (int round = 0; round < 2; ++round) {
    for (int twice = 0; twice < 2; ++twice) {
      qvn_log_exit();
      qvn_log_uninit();
      qvn_log_file_close();
      EXPECT_EQ(qvn_log_file_reopen("/"), 0);
      EXPECT_EQ(qvn_log_set_level(kLogDebug), 0);
      EXPECT_EQ(qvn_log_add_bind_logger(0, kLogDebug), 0);
      EXPECT_EQ(qvn_log_add_unbind_logger(0), 0);
      EXPECT_EQ(qvn_log_print("m", 1, kLogInfo, 0, "early\n"), 0);
      EXPECT_FALSE(qvn_log_drain(0ms));
    }
    EXPECT_EQ(qvn_log_init(), 0);
    EXPECT_EQ(qvn_log_init(), 0);
    EXPECT_TRUE(qvn_log_drain(kDeadline)) << "what was queued before is dropped";
  }
  qvn_log_exit();
  qvn_log_uninit();
}

}  // namespace
