/// The answered calls of one trunk and day, in the job's worker thread.
#pragma once

#include "rerate/rerate_day.h"
#include "rerate/rerate_task.h"
#include "rerate/rerated_calls.h"

/// The part of the day that the job wants, as a condition on its table; empty for all of it. Throws
/// std::bad_alloc when memory runs out.
[[nodiscard]] std::string rerate_time_condition(const rerate_day& day);

/// The COPY of the trunk's answered calls in the day's table that meet the condition; an empty one
/// is none. Throws as above.
[[nodiscard]] std::string rerate_calls_copy(const rerate_trunk& trunk, const rerate_day& day,
                                            const std::string& condition, bool with_q850);

/// Loads the calls, each of which is priced as it comes. 0, or -1, logged. Throws std::bad_alloc
/// when memory runs out.
[[nodiscard]] int32_t get_rerate_cdr(rerate_task& task, const rerate_trunk& trunk,
                                     const rerate_day& day, rerated_calls& calls);
