/// One day of a rerating, in the job's worker thread.
#pragma once

#include "rerate/rerate_day.h"
#include "rerate/rerate_task.h"

/// What stands for all calls of a trunk that has its rates: the trees and switches of the task and
/// the settings of the trunk. Valid as long as they are. Throws std::bad_alloc when memory runs
/// out, as the next.
[[nodiscard]] pricing_terms rerate_terms(const rerate_task& task, const rerate_trunk& trunk);

/// Loads and rates the day's calls of all trunks, ingress first, up to the first that fails.
[[nodiscard]] rerate_outcome rerate_cdr(rerate_task& task, const rerate_day& day);
