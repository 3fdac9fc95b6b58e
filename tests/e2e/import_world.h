// What the import tests share: one cluster for the test program, decks and job rows.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "support/daemon_harness.h"
#include "support/test_cluster.h"

namespace e2e {

/// The cluster of this test program, started at first use and stopped by main's end.
support::TestCluster& cluster();

/// Columns of a row of rate_upload_task beside what every job has; values as SQL.
using Columns = std::map<std::string, std::string>;

/// Inserts a job for the rate table and a deck in `folder`; returns its id. `columns` replace the
/// ordinary ones: date format YYYY-MM-DD, everything else as the table's defaults.
std::string submit(support::Session& portal, const std::filesystem::path& folder,
                   const std::string& deck, const std::string& rate_table,
                   const Columns& columns = {});

/// Waits until the job has status 4 or 5; "status progress" of the row.
std::string outcome(support::Session& portal, const std::string& id);

/// The rates of a rate table by code and date, a line each: code|rate|effective date|end date;
/// "now" is the last hour.
std::string rates(support::Session& portal, const std::string& rate_table);

/// Stores a rate as an earlier import would have left it; dates as SQL text, an empty end for none.
void store_rate(support::Session& portal, const std::string& rate_table, const std::string& code,
                const std::string& rate, const std::string& effective, const std::string& end = "");

/// Drops a database, whoever is connected to it; nothing when there is none.
void drop_database(const std::string& name);

/// A daemon that serves these databases, which are made at once.
std::unique_ptr<support::DaemonHarness> daemon_for(const std::vector<std::string>& databases);

}  // namespace e2e
