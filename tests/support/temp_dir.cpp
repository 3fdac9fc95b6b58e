#include "support/temp_dir.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <signal.h>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace support {
namespace {

namespace fs = std::filesystem;

/// The guard's work: collects "folder\tpid file\n" lines until the test program is gone, then
/// cleans up. For an ordinary end all folders are gone already.
void guard(int lines) {
  FILE* in = fdopen(lines, "r");
  std::vector<std::pair<fs::path, std::string>> folders;
  char line[4096];
  while (in != nullptr && fgets(line, sizeof line, in) != nullptr) {
    std::string text(line);
    text.pop_back();
    const size_t tab = text.find('\t');
    folders.emplace_back(text.substr(0, tab), text.substr(tab + 1));
  }
  for (const auto& [folder, pid_file] : folders) {
    const int pid = pid_file.empty() ? 0 : atoi(read_file(folder / pid_file).c_str());
    if (pid > 1) {
      kill(pid, SIGQUIT);
      pause_until([](void* p) { return kill(*static_cast<const int*>(p), 0) != 0; },
                  const_cast<int*>(&pid), 2);
      kill(pid, SIGKILL);
    }
    std::error_code ignored;
    fs::remove_all(folder, ignored);
  }
}

/// Starts the guard as nobody's child, so that whoever kills the test program's children leaves it
/// alone.
int start_guard() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0)
    abort();
  const pid_t middle = fork();
  if (middle == 0) {
    setsid();
    if (fork() == 0) {
      close(ends[1]);
      for (int fd = 0; fd < 3; fd++)
        dup2(open("/dev/null", O_RDWR | O_CLOEXEC), fd);
      guard(ends[0]);
    }
    _exit(0);
  }
  waitpid(middle, nullptr, 0);
  close(ends[0]);
  return ends[1];
}

}  // namespace

TempDir::TempDir(const std::string& pid_file) {
  static const int guard_lines = start_guard();
  std::string name = (fs::temp_directory_path() / "qvn-test.XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    perror(name.c_str());
    abort();
  }
  path_ = name;
  fs::permissions(path_, fs::perms(0755));
  const std::string line = name + "\t" + pid_file + "\n";
  if (write(guard_lines, line.data(), line.size()) < 0)
    perror("guard");
}

TempDir::~TempDir() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::string read_file(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

void write_file(const fs::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

bool pause_until(bool (*call)(void*), void* condition, int seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (!call(condition)) {
    if (std::chrono::steady_clock::now() > deadline)
      return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

}  // namespace support
