#include "tools/progress_bar.h"

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int64_t kLargeFile = int64_t{4} * 1024 * 1024;
constexpr uint32_t kLinesBetweenLooks = 4096;
constexpr int kWidth = 40;
constexpr const char* kFull = "########################################";

int64_t plain_size(std::FILE* file) {
  struct stat status {};
  return fstat(fileno(file), &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : 0;
}

}  // namespace

progress_bar::progress_bar(std::FILE* file) : file_(file) {
  const int64_t size = plain_size(file);
  size_ = size >= kLargeFile && isatty(STDERR_FILENO) == 1 ? size : 0;
}

void progress_bar::step() {
  if (size_ == 0 || ++lines_ % kLinesBetweenLooks != 0) {
    return;
  }
  const int64_t percent = ftello(file_) * 100 / size_;
  if (percent == shown_percent_) {
    return;
  }
  shown_percent_ = percent;
  (void)std::fprintf(stderr, "\r[%-*.*s] %3d%%", kWidth, static_cast<int>(percent * kWidth / 100),
                     kFull, static_cast<int>(percent));
}

void progress_bar::hide() {
  if (shown_percent_ >= 0) {
    (void)std::fputs("\r\033[K", stderr);
    shown_percent_ = -1;
  }
}
