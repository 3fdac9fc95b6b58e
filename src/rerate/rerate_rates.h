/// The rates of a job's trunks, in the job's worker thread. Trunks with the same rate table and
/// date share what was loaded once.
#pragma once

#include "rerate/rerate_day.h"
#include "rerate/rerate_task.h"

/// Loads the rates of the trunks that name a date, ingress side first. Fails when a trunk has none
/// or, for want of memory or connection, not all the reference data has come. Throws std::bad_alloc
/// when memory runs out, as the next.
[[nodiscard]] rerate_outcome rerate_load_fixed_rates(rerate_task& task);

/// Loads the rates of the trunks that follow the calls' date, as they are when the day begins; what
/// they had is freed before. Fails as above.
[[nodiscard]] rerate_outcome rerate_load_rates_of_day(rerate_task& task, const rerate_day& day);

/// The COPY of a rate table's rates that have not ended at `date`, in seconds since the epoch.
/// Throws as above.
[[nodiscard]] std::string rerate_rates_copy(const std::string& rate_table_id, int64_t date);
