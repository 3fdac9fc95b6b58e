// Jobs that a fault can hit in any phase, from the same beginning again and again, and what may be
// left of them: compared with the result of a run that nothing disturbed.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "e2e/portal_world.h"

namespace faults {

/// A database with the stored data of one job, which is made in it at once.
class Job {
 public:
  Job(std::string database, const char* table) : database_(std::move(database)), table_(table) {}
  virtual ~Job() = default;
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  const std::string& database() const { return database_; }
  support::Session portal() const { return e2e::cluster().connect(database_); }

  /// Stores the data as they were before the first run and inserts a row for the daemon.
  void submit(const support::DaemonHarness& daemon);

  /// "status progress" of the row.
  std::string row() const;
  bool ended() const { return row()[0] >= '4'; }

  /// The lines with which the daemon begins the job and counts it off as the last of its database.
  std::string begin_line() const;
  std::string removed_line() const;

  /// Keeps what the job has made: nothing disturbed it.
  virtual void keep_result() = 0;
  /// Nothing stored is lost or invented, whatever the job had come to, and a file is there whole or
  /// not at all.
  virtual void expect_allowed() const = 0;
  /// What the undisturbed run made, and nothing else.
  virtual void expect_whole() const = 0;
  /// Removes what the last run has written beside the database: jobs of an hour would fill the
  /// disk.
  virtual void forget_result() const {}
  /// Whether the job has begun and has no worker.
  bool is_unattended() const;
  /// Does what docs/operation.md says; the job must have no worker.
  void recover() const;

 protected:
  virtual std::string insert_row(support::Session& portal,
                                 const support::DaemonHarness& daemon) = 0;
  virtual const char* kind() const = 0;
  /// Recovers a job that stands at status 1 to 3.
  virtual void bring_to_end() const = 0;

  std::string id_;
  std::filesystem::path folder_;  ///< the daemon's

 private:
  std::string database_;
  const char* table_;
};

/// An import of so many lines: a quarter each ends a rate, repeats one, comes before one, is new.
/// `action` is what is done to a repeated rate; `end_date` may be empty.
std::unique_ptr<Job> import_job(const std::string& database, int lines, int action,
                                const std::string& effective_date, const std::string& end_date);

/// A rerating of two days with so many calls each, on a trunk a side.
std::unique_ptr<Job> rerate_job(const std::string& database, int calls);

/// The fenced block of docs/operation.md that begins with that comment, as psql would send it with
/// these variables set.
std::string operator_block(const std::string& comment,
                           const std::map<std::string, std::string>& variables = {});

/// Ends the connections that a daemon has left to the job's database, as the document says, and
/// waits until they are gone; `started`: when its successor did, as SQL text.
void end_leftovers(const Job& job, const std::string& started);

}  // namespace faults
