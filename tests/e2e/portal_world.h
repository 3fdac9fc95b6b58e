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

/// Whether so many statements wait for a lock in the session's database. Not for use within a
/// transaction, which would see the same moment again and again.
bool waiting(support::Session& portal, int statements = 1);

/// Ends the daemon by SIGTERM: with status 0 and its two closing lines. How long that took.
std::chrono::milliseconds end_by_sigterm(support::DaemonHarness& daemon);

/// A calendar day so many days from today, YYYY-MM-DD.
std::string day(int days);

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

/// A call record by column, as COPY writes the values; columns left out are null.
using Call = std::map<std::string, std::string>;

/// A call of 60 s on 1 March 2026 at 12:00:00 to 442012345678, with these columns ("name=value
/// ...") in place of or beside the ordinary ones. Its trunk on both sides is 1.
Call call(const std::string& columns = "");

/// Stores calls in the day's table ("20260301"), which is made when there is none.
void store_calls(support::Session& portal, const std::string& day, const std::vector<Call>& calls);

/// SQL that stores a rate: 0.1 a minute for code 44 in steps of 6 s from 1 January 2026 on in
/// rate table 1, with these columns in place of or beside the ordinary ones.
std::string rate(const std::string& columns);

/// SQL that stores a rate table, and a trunk that rounds as given.
std::string rate_table(const std::string& id, const std::string& columns = "");
std::string trunk(const std::string& id, const std::string& alias,
                  const std::string& decimals = "6", const std::string& rounding = "1");

/// Inserts a job for 1 March 2026, whole day, without trunks; returns its id.
std::string rerate(support::Session& portal, const std::string& columns);

/// Waits until the job has status 4 or 5; "err_code status progress" of the row.
std::string rerated(support::Session& portal, const std::string& id);

/// What the ended job says of its files, and one of them by trunk and date.
std::string listed_files(support::Session& portal, const std::string& id);
std::filesystem::path cdr_file(support::Session& portal, const std::string& id,
                               const std::string& trunk, const std::string& date = "2026-03-01");

/// Where a job's files lie, below the CDR directory; an empty path as long as there is no folder.
std::filesystem::path output_folder(const std::filesystem::path& cdr_directory,
                                    const std::string& database, const std::string& id = "1");

}  // namespace e2e
