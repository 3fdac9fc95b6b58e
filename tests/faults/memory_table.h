/// What the tests of both kinds share that let a daemon's allocations fail: the table of failures
/// and the figures of a sweep through their numbers.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "e2e/portal_world.h"
#include "faults/memory_faults.h"
#include "support/rounds.h"

namespace faults {

/// The table of failures; every daemon started in its life has the library that reads it.
class FaultTable {
 public:
  FaultTable() : folder_("") {
    // The server starts without it, and lets the daemon in without the many thousand allocations by
    // which it would prove its password.
    e2e::cluster()
        .connect("postgres")
        .query(
            "DO $$ BEGIN EXECUTE format('COPY (SELECT ''host all all 127.0.0.1/32 trust'') TO %L',"
            " current_setting('hba_file')); END $$; SELECT pg_reload_conf()");
    const std::string path = folder_.path() / "faults";
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    EXPECT_EQ(ftruncate(file, sizeof(MemoryFaults)), 0);
    table_ = static_cast<MemoryFaults*>(
        mmap(nullptr, sizeof(MemoryFaults), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
    close(file);
    setenv("QVN_MEMORY_FAULTS", path.c_str(), 1);
    setenv("LD_PRELOAD", QVN_MEMORY_FAULTS, 1);
  }
  ~FaultTable() {
    unsetenv("LD_PRELOAD");
    munmap(table_, sizeof(MemoryFaults));
  }
  FaultTable(const FaultTable&) = delete;
  FaultTable& operator=(const FaultTable&) = delete;

  MemoryFaults* operator->() const { return table_; }

  /// Gives the thread a place of the table, in which nothing is counted yet and nothing fails.
  MemoryTarget& watch(size_t place, const std::string& thread) {
    MemoryTarget& target = table_->targets[place];
    target.thread[thread.copy(target.thread, sizeof target.thread - 1)] = '\0';
    target.fail_at = target.step = target.seen = target.failed = 0;
    target.begun = target.ended = 0;
    target.from_then_on = false;
    table_->version++;
    return target;
  }

  /// Remembers how little the daemon holds between the visits of the poller.
  void remember_rest() {
    resting_blocks_ = table_->live_blocks;
    resting_bytes_ = table_->live_bytes;
    support::wait_until(
        [&] {
          resting_blocks_ = std::min<int64_t>(resting_blocks_, table_->live_blocks);
          resting_bytes_ = std::min<int64_t>(resting_bytes_, table_->live_bytes);
          return false;
        },
        kOneVisit);
  }
  /// Waits until it holds no more than that; blocks of one size differ by a few bytes.
  void expect_rest() const {
    EXPECT_TRUE(support::wait_until([&] {
      return table_->live_blocks <= resting_blocks_ &&
             table_->live_bytes <= resting_bytes_ + kDifferences;
    })) << table_->live_blocks - resting_blocks_
        << " blocks, " << table_->live_bytes - resting_bytes_ << " bytes are kept";
  }

 private:
  static constexpr int kOneVisit = 6;  // seconds
  static constexpr int64_t kDifferences = 16384;

  support::TempDir folder_;
  MemoryFaults* table_;
  int64_t resting_blocks_ = 0;
  int64_t resting_bytes_ = 0;
};

/// One failure in the short form stands for so many.
inline uint32_t stride() {
  return static_cast<uint32_t>(support::rounds_or(14));
}

/// What a sweep has come to.
struct Sweep {
  const char* name;
  bool from_then_on;
  uint32_t numbers = 0;   ///< of allocations that were to fail
  uint32_t failures = 0;  ///< allocations that failed
  uint32_t last = 0;      ///< the last number that was reached

  /// Takes the result of one number; whether it was reached.
  bool count(uint32_t number, const MemoryTarget& target) {
    numbers++;
    failures += target.failed;
    if (target.failed > 0)
      last = std::max(last, number);
    return target.failed > 0;
  }
  void print() const {
    printf("memory_%s_%s %u numbers, last %u, %u failures\n", name, from_then_on ? "all" : "once",
           numbers, last, failures);
  }
};

}  // namespace faults
