// The disks that the daemon writes to are full, or take nothing at all.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "e2e/portal_world.h"
#include "support/console.h"
#include "support/small_disk.h"

namespace {

namespace fs = std::filesystem;

using support::DaemonHarness;
using support::Session;
using support::SmallDisk;
using testing::HasSubstr;

constexpr const char* kFewPages = "size=256k,mode=0777";

class Disk : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0)
      GTEST_SKIP() << "Only root mounts disks";
    e2e::drop_database("disk");
    daemon_ = e2e::daemon_for({"disk"});
    daemon_->write_main_conf(
        "[general]\nlog_level=7\n[rerate]\ncdr_directory=" + (daemon_->path() / "out").string() +
        "\n[rate_upload]\nresult_directory=" + (daemon_->path() / "out").string() + "\n");
    Session portal = e2e::cluster().connect("disk");
    portal.query(e2e::rate_table("1") + e2e::trunk("1", "t") + e2e::rate("rate_id=5"));
    e2e::store_calls(portal, "20260301", {e2e::call()});
  }

  /// Imports a deck with a refused line into a new rate table; the row's end and the rates.
  std::string imported() {
    Session portal = e2e::cluster().connect("disk");
    const std::string table = std::to_string(++rate_table_);
    const std::string id =
        e2e::submit(portal, daemon_->path(),
                    "code,rate,effective_date\n44,1,2024-03-01\n45,x,2024-03-01\n", table);
    const std::string end = e2e::outcome(portal, id);
    return end + "\n" + e2e::rates(portal, table);
  }

  /// Rerates the day; the row's end and the files that it names.
  std::string rerated() {
    Session portal = e2e::cluster().connect("disk");
    const std::string id = e2e::rerate(portal, "ingress_trunk='1,1,1,0'");
    const std::string end = e2e::rerated(portal, id);
    return end + e2e::listed_files(portal, id);
  }

  std::unique_ptr<DaemonHarness> daemon_;
  int rate_table_ = 100;
};

constexpr const char* kImported = "4 Insert: 1, Delete: 0, Update: 0, Error: 1\n44|1|2024-03-01|\n";

TEST_F(Disk, AFullDiskOfResultsIsToldAndNothingOnItPassesForWhole) {
  const SmallDisk disk(daemon_->path() / "out", kFewPages);
  disk.fill();
  daemon_->start();
  // The rates do not hang on the report; that it is not whole stands in the log.
  EXPECT_EQ(imported(), kImported);
  for (const char* file : {"rate_import.log", "rate_reimport.csv"})
    EXPECT_TRUE(
        daemon_->wait_log("writing " + std::string(file) + " failed, No space left on device\n"));
  Session portal = e2e::cluster().connect("disk");
  portal.query(
      "INSERT INTO client_cdr20260301 (time, session_id, call_duration, ingress_id)"
      " SELECT '2026-03-01', repeat('s', 200), 1, 1 FROM generate_series(1, 3000)");
  EXPECT_EQ(rerated(), "0 4 ");
  EXPECT_TRUE(daemon_->wait_log("-1-2026-03-01.cdr failed, error:28(No space left on device)\n"));
  EXPECT_TRUE(daemon_->wait_log(" calls that match no rate are not logged, error:28("));
  portal.query("DELETE FROM client_cdr20260301 WHERE routing_digits IS NULL");
  disk.free();
  EXPECT_EQ(imported(), kImported);
  EXPECT_EQ(rerated(), "0 4 2-1-2026-03-01.cdr");
}

TEST_F(Disk, ADiskOfResultsThatTakesNothingFailsTheImportBeforeItWrites) {
  const SmallDisk disk(daemon_->path() / "out", kFewPages);
  disk.refuse_writes();
  daemon_->start();
  EXPECT_EQ(imported(), "5 Create rate import log file failed\n");
  EXPECT_EQ(rerated(), "0 4 ");
  EXPECT_TRUE(daemon_->wait_log("-1-2026-03-01.cdr failed, error:"));
  disk.take_writes();
  EXPECT_EQ(imported(), kImported);
  EXPECT_EQ(rerated(), "0 4 2-1-2026-03-01.cdr");
}

TEST_F(Disk, JobsGoOnWhileTheLogsDiskIsFullAndTheLogWhenItIsFreeAgain) {
  const SmallDisk disk(daemon_->path() / "log", kFewPages);
  daemon_->start();
  disk.fill();
  const auto list = [&] {
    const support::Console console(daemon_->console_port());
    EXPECT_TRUE(console.log_in());
    console.send("help\r\nlogout\r\n");
    EXPECT_TRUE(console.closes());
  };
  // More lines than a page of the disk holds.
  for (int i = 0; i < 30; i++)
    list();
  EXPECT_EQ(imported(), kImported);
  disk.free();
  const std::string before = daemon_->log();
  EXPECT_TRUE(support::wait_until([&] {
    list();
    return daemon_->log().size() > before.size() + 200;
  }));
  EXPECT_TRUE(daemon_->log().starts_with(before));
  EXPECT_EQ(rerated(), "0 4 1-1-2026-03-01.cdr");
  EXPECT_TRUE(daemon_->wait_log("Rerate task 1 have been completed, "));
  EXPECT_TRUE(daemon_->log().ends_with("\n"));
}

TEST_F(Disk, ALogThatCannotBeWrittenKeepsNoJobFromBeingDone) {
  const SmallDisk disk(daemon_->path() / "log", kFewPages);
  disk.refuse_writes();
  daemon_->launch();
  EXPECT_EQ(imported(), kImported);
  EXPECT_EQ(rerated(), "0 4 1-1-2026-03-01.cdr");
}

TEST_F(Disk, ThePidFileLocksOnAFullDiskAndIsMissedOnOneThatTakesNothing) {
  const SmallDisk disk(daemon_->path() / "run", kFewPages);
  disk.refuse_writes();
  const support::Ending refused = daemon_->run({"-nf"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out, "Open qvn_web_helper.pid file failure\n");
  disk.take_writes();
  disk.fill();
  daemon_->start_foreground();
  EXPECT_EQ(support::read_file(daemon_->pid_file()), "");
  EXPECT_THAT(daemon_->run({"-nf"}).out, HasSubstr("qvn_web_helper already running...\n"));
  EXPECT_EQ(daemon_->run({"-kill"}).status, 0);
  EXPECT_EQ(imported(), kImported);
}

}  // namespace
