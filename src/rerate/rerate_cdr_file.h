/// The CDR file of one trunk and day, in the job's worker thread.
#pragma once

#include "rerate/rerate_task.h"
#include "rerate/rerated_calls.h"

/// Makes the file of the trunk's calls of that day, or appends them to it. 0, or -1, logged, when
/// the file cannot be written or the job's list of files is full. Throws std::bad_alloc when memory
/// runs out.
[[nodiscard]] int32_t execute_rerating(rerate_task& task, const rerate_trunk& trunk,
                                       const std::string& date, const rerated_calls& calls);
