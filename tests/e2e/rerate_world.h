// What the rerating tests share: rates, trunks, calls, job rows and the lines of CDR files.
#pragma once

#include <vector>

#include "e2e/portal_world.h"

namespace e2e {

/// Midnights (UTC), seconds since the epoch, and the names of their days. The first is a Sunday.
inline constexpr const char* kMarch1 = "1772323200";
inline constexpr const char* kMarch2 = "1772409600";
inline constexpr const char* kMarch3 = "1772496000";

/// A call record by column, as COPY writes the values; columns left out are null.
using Call = std::map<std::string, std::string>;

/// A call of 60 s on 1 March 2026 at 12:00:00 to 442012345678, with these columns ("name=value
/// ...") in place of or beside the ordinary ones. Its trunk on both sides is 1.
Call call(const std::string& columns = "");

/// Stores calls in the day's table ("20260301"), which is made when there is none.
void store_calls(support::Session& portal, const std::string& day, const std::vector<Call>& calls);

enum class Side { ingress, egress };
const char* name_of(Side side);

/// The call after rating. `columns` separated by "|": rate, cost, billed seconds, billed minutes,
/// rate id, code, code name, country, rate type, effective date; those missing at the end stay.
Call priced(Call call, Side side, const std::string& columns);

/// The columns of a CDR file in their order.
const std::vector<std::string>& cdr_columns();

/// A line of a CDR file: 128 columns, with Q.850 130.
std::string line(const Call& call, bool q850 = false);
std::string lines(const std::vector<Call>& calls);

/// Compares a CDR file byte for byte; what differs, column by column, is the failure's text.
void expect_file(const std::filesystem::path& path, const std::string& expected);

/// SQL that stores a rate: 0.1 a minute for code 44 in steps of 6 s from 1 January 2026 on in
/// rate table 1, with these columns in place of or beside the ordinary ones.
std::string rate(const std::string& columns);

/// SQL that stores a rate table, and a trunk that rounds as told.
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

/// Where a job's files will lie, below the CDR directory.
std::filesystem::path output_folder(const std::filesystem::path& cdr_directory,
                                    const std::string& database, const std::string& id = "1");

}  // namespace e2e
