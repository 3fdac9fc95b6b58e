// What the import tests share: decks, job rows and rates.
#pragma once

#include "e2e/portal_world.h"

namespace e2e {

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

}  // namespace e2e
