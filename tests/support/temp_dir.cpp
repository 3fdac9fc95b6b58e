#include "support/temp_dir.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

namespace support {
namespace {

namespace fs = std::filesystem;

/// Reads lines of a folder and its pid file until the test program is gone, then ends what lives in
/// the folders; after an ordinary end they are gone already. In a session of its own, so that who
/// kills the test program and its children leaves it alone.
constexpr const char* kGuard = R"(exec >/dev/null 2>&1 setsid -f sh -c '
  all=$(cat)
  echo "$all" | while read -r folder file; do
    pid=$(head -n 1 "$folder/$file") && [ "$pid" -gt 1 ] && kill -QUIT "$pid" && sleep 2 && kill -9 "$pid"
    rm -rf "$folder"
  done')";

}  // namespace

TempDir::TempDir(const std::string& pid_file) {
  static FILE* const guard = popen(kGuard, "we");
  std::string name = (fs::temp_directory_path() / "qvn-test.XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    perror(name.c_str());
    abort();
  }
  path_ = name;
  fs::permissions(path_, fs::perms(0755));
  fprintf(guard, "%s %s\n", name.c_str(), pid_file.c_str());
  fflush(guard);
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
