/// What calls are rated with, loaded once for the whole job, in the job's worker thread.
#pragma once

#include "rerate/rerate_task.h"

/// Loads the time profiles; and the jurisdictions, where the job asks for them.
inline constexpr const char* kTimeProfileCopy =
    "copy time_profile (time_profile_id, start_time, end_time, start_week, end_week, "
    "type,time_zone) to stdout delimiter as ',' csv header";
inline constexpr const char* kJurisdictionCopy =
    "copy jurisdiction_prefix (id, prefix, jurisdiction_id, jurisdiction_country_id) to stdout "
    "delimiter as ',' csv header";

/// Loads time profiles, jurisdictions, the trunks' settings, and the rates of the trunks that name
/// a date. Fails when something is missing or found no memory. Throws std::bad_alloc when memory
/// runs out.
[[nodiscard]] rerate_outcome rerate_load_reference_data(rerate_task& task);
