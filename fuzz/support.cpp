#include "support.h"

#include <cstdlib>
#include <ctime>

#include "base/qvn_log.h"
#include "db/qvn_db_conf.h"

namespace {

std::string_view g_content;

struct open_file {
  std::string_view left;
  fuzz_write_fn writer;
};

ssize_t read_some(void* cookie, char* out, std::size_t size) {
  std::string_view& left = static_cast<open_file*>(cookie)->left;
  const std::size_t taken = left.copy(out, size);
  left.remove_prefix(taken);
  return static_cast<ssize_t>(taken);
}

ssize_t write_some(void* cookie, const char* bytes, std::size_t size) {
  const auto* const file = static_cast<open_file*>(cookie);
  file->writer({bytes, size});
  return static_cast<ssize_t>(size);
}

int close_file(void* cookie) {
  delete static_cast<open_file*>(cookie);
  return 0;
}

/// Makes the core record with an empty database table, no log, and UTC as local time.
void make_daemon() {
  setenv("TZ", "UTC0", 1);
  tzset();
  (void)qvn_log_set_level(kLogEmergency);
  g_core_ctrl = new qvn_core_ctrl;
  g_core_ctrl->conf_dir = kFuzzFolder;
  (void)qvn_db_conf_init();
}

}  // namespace

extern "C" {

int LLVMFuzzerInitialize(int* count, char*** arguments);
int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
  make_daemon();
  if (fuzz_prepare) {
    fuzz_prepare();
  }
  return 0;
}

std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode);

/// A reader of files takes its input from memory; whatever else is opened, is.
std::FILE* __wrap_fopen(const char* path, const char* mode) {
  if (std::strncmp(path, kFuzzFolder, std::strlen(kFuzzFolder)) != 0) {
    return __real_fopen(path, mode);
  }
  return fopencookie(new open_file{g_content, nullptr}, "r",
                     {.read = read_some, .write = nullptr, .seek = nullptr, .close = close_file});
}

/// Freed blocks are kept back for a while, not for long, and few callers are noted: runs are short
/// and many.
const char* __asan_default_options();
const char* __asan_default_options() {
  return "quarantine_size_mb=8:malloc_context_size=8:handle_abort=1";
}
const char* __ubsan_default_options();
const char* __ubsan_default_options() {
  return "print_stacktrace=1";
}

}  // extern "C"

void fuzz_fail(const char* promise, const char* file, int line) {
  (void)std::fprintf(stderr, "%s:%d: broken promise: %s\n", file, line, promise);
  std::abort();
}

std::unique_ptr<char[]> fuzz_copy(std::string_view text) {
  std::unique_ptr<char[]> copy(new char[text.size() + 1]);
  copy[text.copy(copy.get(), text.size())] = '\0';
  return copy;
}

uint8_t fuzz_input::byte() {
  const std::string_view one = take(1);
  return one.empty() ? uint8_t{0} : static_cast<uint8_t>(one.front());
}

std::string_view fuzz_input::take(std::size_t size) {
  const std::string_view taken = left_.substr(0, size);
  left_.remove_prefix(taken.size());
  return taken;
}

std::string_view fuzz_input::field(char separator) {
  const std::size_t end = left_.find(separator);
  if (end == std::string_view::npos) {
    return take(left_.size());
  }
  const std::string_view taken = take(end);
  left_.remove_prefix(1);
  return taken;
}

std::string fuzz_input::line() {
  return std::string(fuzz_before_nul(field('\n')));
}

void fuzz_set_content(std::string_view content) {
  g_content = content;
}

std::FILE* fuzz_open_writer(fuzz_write_fn writer) {
  return fopencookie(new open_file{{}, writer}, "w",
                     {.read = nullptr, .write = write_some, .seek = nullptr, .close = close_file});
}
