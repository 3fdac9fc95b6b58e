/// The folder of a job's result files: root/date/label/job id/, shared with the portal's own user.
#pragma once

#include <string>

#include "db/qvn_job_queue.h"

/// Makes the job's folder below `root`, which ends in "/", under today's date in UTC. Its name with
/// a trailing "/", or an empty text when the date cannot be told. A folder that could not be made
/// shows when files are created in it. Throws std::bad_alloc when memory runs out.
[[nodiscard]] std::string qvn_job_folder_make(const std::string& root, const qvn_job& job);

/// Lets everyone read, correct and remove the files; nothing for an empty name. Throws
/// std::bad_alloc when memory runs out.
void qvn_job_folder_open(const std::string& folder);
