/// Temporary folders of the tests, and a guard process that removes them, and ends the servers and
/// daemons that live in them, when a test program dies without running its destructors.
#pragma once

#include <filesystem>
#include <string>

namespace support {

/// One folder below $TMPDIR, readable by everyone; removed with all its content by the destructor.
/// `pid_file` (below the folder; may be empty) names the file whose first line is the process to
/// kill first when the test program dies. Main thread.
class TempDir {
 public:
  explicit TempDir(const std::string& pid_file);
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// The whole content of a file, an empty text when it cannot be read.
std::string read_file(const std::filesystem::path& path);
void write_file(const std::filesystem::path& path, const std::string& content);

/// Repeats `condition` every 10 ms until it holds; false when it does not within `seconds`.
template <typename Condition>
bool wait_until(Condition condition, int seconds = 60);

bool pause_until(bool (*call)(void*), void* condition, int seconds);

template <typename Condition>
bool wait_until(Condition condition, int seconds) {
  return pause_until([](void* held) { return bool((*static_cast<Condition*>(held))()); },
                     &condition, seconds);
}

}  // namespace support
