#include "support/daemon_harness.h"

#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <signal.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/test_cluster.h"

namespace support {
namespace {

namespace fs = std::filesystem;

constexpr const char* kExecutable = "qvn_web_helper";

/// Ends a daemon that a test leaves behind; one that counts its coverage gets to write it.
constexpr int kLastSignal = QVN_COVERAGE ? SIGTERM : SIGKILL;

/// The words of $QVN_RUN_UNDER: a tool, such as valgrind with its options, that runs the
/// executable.
std::vector<std::string> run_under() {
  const char* given = getenv("QVN_RUN_UNDER");
  std::istringstream in(given == nullptr ? "" : given);
  return {std::istream_iterator<std::string>(in), {}};
}

}  // namespace

DaemonHarness::DaemonHarness() : folder_("run/qvn_web_helper.pid"), console_port_(free_port()) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  for (const char* name : {"conf", "log", "run"})
    fs::create_directory(path() / name);
  fs::copy_file(QVN_EXECUTABLE, path() / kExecutable);
  write_main_conf("[general]\nlog_level=7\n");
  write_database_list("");
}

DaemonHarness::~DaemonHarness() {
  if (pid_ > 0) {
    kill(pid_, kLastSignal);
    waitpid(pid_, nullptr, 0);
  }
  for (const auto& entry : fs::directory_iterator(path())) {
    if (entry.path().filename().string().starts_with("sanitizer."))
      ADD_FAILURE() << read_file(entry.path());
  }
}

void DaemonHarness::write_main_conf(const std::string& text) const {
  write_file(path() / "conf/qvn_web_helper.conf",
             text + "\n[CLI]\ncli_listen_port=" + std::to_string(console_port_) + "\n" +
                 console_settings_);
}

void DaemonHarness::write_databases(int port, const std::vector<std::string>& names) const {
  std::string text;
  for (const std::string& name : names)
    text += database_section(name, port, name);
  write_database_list(text);
}

void DaemonHarness::write_database_list(const std::string& text) const {
  write_file(path() / "conf/qvn_db_info.conf", text);
}

fs::path DaemonHarness::output(const char* stream, int number) const {
  return path() / (stream + std::to_string(number));
}

pid_t DaemonHarness::start_with(const std::vector<std::string>& arguments, int in, int out,
                                int err) const {
  const std::string executable = (path() / kExecutable).string();
  const std::string reports = sanitizer_options(path());
  std::vector<char*> words;
  const std::vector<std::string> tool = run_under();
  words.reserve(tool.size() + arguments.size() + 2);
  for (const std::string& word : tool)
    words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(const_cast<char*>(executable.c_str()));
  for (const std::string& word : arguments)
    words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  const pid_t child = fork();
  if (child != 0)
    return child;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // A core goes with the installation.
  if (chdir(path().c_str()) != 0)
    _exit(126);
  for (const char* name : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
    const char* given = getenv(name);
    setenv(name, (given == nullptr ? reports : std::string(given) + ":" + reports).c_str(), 1);
  }
  setenv("TZ", time_zone_.c_str(), 1);
  dup2(in, 0);
  dup2(out, 1);
  dup2(err, 2);
  execvp(words[0], words.data());
  _exit(127);
}

pid_t DaemonHarness::spawn(const std::vector<std::string>& arguments) {
  spawned_++;
  const auto create = [this](const char* stream) {
    return open(output(stream, spawned_).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  };
  const int in = open("/dev/null", O_RDONLY | O_CLOEXEC);
  const int out = create("out");
  const int err = create("err");
  const pid_t child = start_with(arguments, in, out, err);
  for (const int fd : {in, out, err})
    close(fd);
  return child;
}

Ending DaemonHarness::ending(pid_t process, int number) const {
  int status = 0;
  const bool ended = wait_until([&] { return waitpid(process, &status, WNOHANG) == process; });
  EXPECT_TRUE(ended) << "process " << process << " does not end";
  if (!ended) {
    kill(process, SIGKILL);
    waitpid(process, &status, 0);
  }
  return {exit_status(status), read_file(output("out", number)), read_file(output("err", number))};
}

Ending DaemonHarness::run(const std::vector<std::string>& arguments) {
  const pid_t process = spawn(arguments);
  return ending(process, spawned_);
}

void DaemonHarness::launch() {
  EXPECT_EQ(run({}).status, 0);
  daemon_number_ = spawned_;
  foreground_ = false;
  // "4711 Backgrounding." is the last word of the process that started the daemon.
  const fs::path err = output("err", daemon_number_);
  EXPECT_TRUE(wait_until([&] { return read_file(err).ends_with(" Backgrounding.\n"); }));
  pid_ = atoi(read_file(err).c_str());
  // It becomes this process's child when that one is gone.
  EXPECT_TRUE(wait_until([&] {
    siginfo_t info;
    return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0;
  }));
}

void DaemonHarness::start() {
  fs::remove(path() / "log/qvn_web_helper.log");
  launch();
  expect_running();
}

void DaemonHarness::start_foreground() {
  pid_ = spawn({"-nf"});
  daemon_number_ = spawned_;
  foreground_ = true;
  expect_running();
}

void DaemonHarness::expect_running() {
  EXPECT_TRUE(wait_log("Start running...\n")) << log();
}

void DaemonHarness::send(int signal) const {
  EXPECT_EQ(kill(pid_, signal), 0);
}

Ending DaemonHarness::wait_end() {
  Ending result = ending(pid_, daemon_number_);
  pid_ = -1;
  return result;
}

std::string DaemonHarness::log() const {
  return read_file(foreground_ ? output("err", daemon_number_) : path() / "log/qvn_web_helper.log");
}

bool DaemonHarness::wait_log(const std::string& text, int times) const {
  return wait_until([&] { return count_of(log(), text) >= times; });
}

bool DaemonHarness::runs() const {
  return pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == 0;
}

Holdings DaemonHarness::holdings() const {
  const fs::path process = "/proc/" + std::to_string(pid_);
  long size = 0, resident = 0;
  std::ifstream(process / "statm") >> size >> resident;
  const auto entries = [&](const char* folder) {
    std::error_code gone;
    const fs::directory_iterator all(process / folder, gone);
    return std::distance(begin(all), end(all));
  };
  return {resident * 4, entries("fd"), entries("task")};
}

std::string database_section(const std::string& section, int port, const std::string& name) {
  return "[" + section + "]\ndb_host=" + TestCluster::kHost +
         "\ndb_listen_port=" + std::to_string(port) + "\ndb_name=" + name +
         "\ndb_user=" + TestCluster::kUser + "\ndb_user_password=" + TestCluster::kPassword + "\n";
}

int count_of(const std::string& whole, const std::string& text) {
  int count = 0;
  for (size_t at = whole.find(text); at != std::string::npos; at = whole.find(text, at + 1))
    count++;
  return count;
}

}  // namespace support
