// Runs the blocks of a page by a real daemon and compares what they show.
#pragma once

#include "e2e/portal_world.h"
#include "support/page.h"

namespace e2e {

/// How the text of a block is compared with what is shown; "..." stands for anything.
enum class Widths { exact, free };  ///< free: widths of columns do not matter, as in psql's tables

/// Whether the block inserts a job.
bool inserts_job(const support::Block& block);

/// Runs blocks in the installation of a daemon and a database that it serves: "sql" by psql, "sh"
/// and "bash" by that shell, and a block with a file's name writes that file: "csv" into the folder
/// of uploads, others into the installation. The blocks call the installation /opt/qvn_web_helper,
/// the folder of uploads /var/portal/upload, and the console's address /127.0.0.1/4410.
class PageRunner {
 public:
  /// The folder of uploads is `upload` below the installation. Without a database's name there is
  /// none.
  PageRunner(const support::DaemonHarness& daemon, const std::string& database, Widths widths,
             const std::string& upload = "upload");

  /// Runs a block, or writes its file.
  void run(const support::Block& block);
  /// The same beside a running daemon: waits for the jobs that the block has inserted.
  void run_and_wait(const support::Block& block);
  /// Compares a text with what the last block has shown. Its answer may come a moment after the
  /// job's row, so it is asked again for a while.
  void expect_shown(const std::string& text);

  /// Waits until all jobs of the database have ended.
  void wait_for_jobs() const;

 private:
  std::string execute(const support::Block& block) const;
  bool is_shown(const std::string& text) const;
  std::string real(std::string text) const;

  const support::DaemonHarness& daemon_;
  std::string database_;
  Widths widths_;
  std::filesystem::path upload_;
  support::Block asked_;
  std::string output_;
};

}  // namespace e2e
