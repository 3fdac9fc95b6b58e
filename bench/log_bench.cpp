// What the logger costs, one figure a line: name, value, unit.
//
//   lines_per_second_4_threads   lines that four threads bring into the file, from the first call
//   to the
//                                last byte written; a thread whose line is refused waits and tries
//                                again
//   filtered_call                a call whose line the level filters out
//   empty_call                   a call of a function with the same arguments that does nothing
//   filtered_call_ratio          the first by the second
//
// Usage: log_bench [lines a thread] [directory]

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdlib.h>
#include <string>
#include <thread>
#include <vector>

#include "base/qvn_log.h"

namespace {

using bench_clock = std::chrono::steady_clock;
using seconds = std::chrono::duration<double>;

constexpr int kThreads = 4;
constexpr int kDefaultLines = 500'000;
constexpr int kCalls = 20'000'000;
constexpr const char* kLogSource = "log_bench";

[[gnu::noinline, gnu::format(printf, 5, 6)]] int32_t empty_call(const char* file, int line,
                                                                uint32_t level, uint8_t force,
                                                                const char* format, ...) {
  // Keeps the call from being optimised away.
  asm volatile("" : : "r"(file), "r"(line), "r"(level), "r"(force), "r"(format) : "memory");
  return -1;
}

void produce(int thread, int lines) {
  for (int i = 0; i < lines; ++i) {
    while (qvn_log_print(kLogSource, __LINE__, kLogInfo, 0,
                         "Task %d of thread %d: rated %d CDRs of trunk %s\n", i, thread, 1000 + i,
                         "ingress-17") != 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
}

std::ptrdiff_t count_lines(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::count(std::istreambuf_iterator<char>(file), {}, '\n');
}

/// Lines a second, or 0 when lines are missing in the file.
double sustained_lines_per_second(const std::string& path, int lines_a_thread) {
  const std::ptrdiff_t before = count_lines(path);
  const auto start = bench_clock::now();
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back(produce, t, lines_a_thread);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const bool drained = qvn_log_drain(std::chrono::minutes(1));
  const seconds elapsed = bench_clock::now() - start;
  const std::ptrdiff_t written = count_lines(path) - before;
  if (!drained || written != std::ptrdiff_t{kThreads} * lines_a_thread) {
    std::fprintf(stderr, "log_bench: only %td lines reached the file\n", written);
    return 0;
  }
  return static_cast<double>(written) / elapsed.count();
}

template <class Call>
double nanoseconds_a_call(Call call) {
  const auto start = bench_clock::now();
  for (int i = 0; i < kCalls; ++i) {
    (void)call(kLogSource, i, kLogDebug, 0, "filtered %d\n", i);
  }
  const std::chrono::duration<double, std::nano> elapsed = bench_clock::now() - start;
  return elapsed.count() / kCalls;
}

int measure(const std::string& directory, int lines_a_thread) {
  const std::string path = directory + "/bench.log";
  if (qvn_log_init() != 0 || qvn_log_file_open(path.c_str(), kLogInfo, 0) != 0 ||
      !qvn_log_drain(std::chrono::seconds(10))) {
    std::fprintf(stderr, "log_bench: cannot log to %s\n", path.c_str());
    return 1;
  }
  qvn_log_set_size(UINT32_MAX);
  const double lines = sustained_lines_per_second(path, lines_a_thread);
  const double filtered = nanoseconds_a_call(qvn_log_print);
  const double empty = nanoseconds_a_call(empty_call);
  std::printf("lines_per_second_4_threads %.0f lines/s\n", lines);
  std::printf("filtered_call %.2f ns\n", filtered);
  std::printf("empty_call %.2f ns\n", empty);
  std::printf("filtered_call_ratio %.2f x\n", filtered / empty);
  qvn_log_exit();
  qvn_log_uninit();
  qvn_log_file_close();
  return lines > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const int lines_a_thread = argc > 1 ? atoi(argv[1]) : kDefaultLines;
  std::string directory =
      (argc > 2 ? std::string(argv[2]) : std::filesystem::temp_directory_path().string()) +
      "/log_bench_XXXXXX";
  if (lines_a_thread < 1 || mkdtemp(directory.data()) == nullptr) {
    std::fprintf(stderr, "Usage: log_bench [lines a thread] [directory]\n");
    return 2;
  }
  const int status = measure(directory, lines_a_thread);
  std::filesystem::remove_all(directory);
  return status;
}
