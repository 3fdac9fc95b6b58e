/// The answered calls of one trunk and day, in the job's worker thread.
#pragma once

#include "rerate/rerate_day.h"
#include "rerate/rerate_task.h"
#include "rerate/rerated_calls.h"

/// Loads the calls, each of which is priced as it comes. 0, or -1, logged. Throws std::bad_alloc
/// when memory runs out.
[[nodiscard]] int32_t get_rerate_cdr(rerate_task& task, const rerate_trunk& trunk,
                                     const rerate_day& day, rerated_calls& calls);

/// The COPY of a trunk's answered calls of that day. Throws as above.
[[nodiscard]] std::string rerate_calls_copy(const rerate_trunk& trunk, const rerate_day& day,
                                            bool with_q850);
