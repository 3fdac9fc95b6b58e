// What the tests of both kinds of job share: one cluster for the test program, daemons that serve
// databases of it, job rows.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/daemon_harness.h"
#include "support/test_cluster.h"

namespace e2e {

/// The cluster of this test program, started at first use and stopped by main's end.
support::TestCluster& cluster();

/// Drops a database, whoever is connected to it; nothing when there is none.
void drop_database(const std::string& name);

/// A daemon that serves these databases, which are made at once.
std::unique_ptr<support::DaemonHarness> daemon_for(const std::vector<std::string>& databases);

/// The same for the databases that scenarios are named after.
template <typename Scenarios>
std::unique_ptr<support::DaemonHarness> daemon_for_each(const Scenarios& scenarios) {
  std::vector<std::string> databases;
  databases.reserve(std::size(scenarios));
  for (const auto& scenario : scenarios)
    databases.emplace_back(scenario.name);
  return daemon_for(databases);
}

/// Columns of a row; values as SQL.
using Columns = std::map<std::string, std::string>;

/// `defaults` with the values of `columns` in place of or beside its own.
Columns merged(Columns defaults, const Columns& columns);

/// Columns from "name=value name=value ..."; of one name the last value counts. No value holds a
/// blank.
Columns columns(const std::string& text);

/// The statement that inserts a row.
std::string insertion(const std::string& table, const Columns& columns);

/// Waits until the job's row in `table` has status 4 or 5; the value of `expression` in that row.
std::string job_end(support::Session& portal, const std::string& table, const std::string& id,
                    const std::string& expression);

/// Waits until everyone may read and write the folder: the last thing that a job does to it, after
/// its row has ended.
bool wait_open_to_all(const std::filesystem::path& folder);

/// How many statements of the daemon that start with `beginning` wait for a lock in the session's
/// database, after `action` ("pid", or a function of it) was done to them. Not for use within a
/// transaction, which would see the same moment again and again.
std::string waiting(support::Session& portal, const std::string& beginning,
                    const std::string& action);

/// Waits until one statement waits that way.
bool wait_waiting(support::Session& portal, const std::string& beginning);

/// Ends the daemon by SIGTERM: with status 0 and its two closing lines. How long that took.
std::chrono::milliseconds end_by_sigterm(support::DaemonHarness& daemon);

/// A calendar day so many days from today, YYYY-MM-DD.
std::string day(int days);

}  // namespace e2e
