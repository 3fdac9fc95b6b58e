/// What calls are rated with, loaded once for the whole job, in the job's worker thread.
#pragma once

#include "rerate/rerate_task.h"

/// Loads time profiles, jurisdictions, the trunks' settings, and the rates of the trunks that name
/// a date. Fails when something is missing or found no memory. Throws std::bad_alloc when memory
/// runs out.
[[nodiscard]] rerate_outcome rerate_load_reference_data(rerate_task& task);
