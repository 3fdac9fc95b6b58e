/// One day of a rerating, in the job's worker thread.
#pragma once

#include "rerate/rerate_day.h"
#include "rerate/rerate_task.h"

/// Loads and rates the day's calls of all trunks, ingress first, up to the first that fails. Throws
/// std::bad_alloc when memory runs out.
[[nodiscard]] rerate_outcome rerate_cdr(rerate_task& task, const rerate_day& day);
