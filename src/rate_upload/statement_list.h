/// What an import does to stored rates, while it waits to be sent: ids and moments, no texts, as
/// there may be millions.
#pragma once

#include <cstdint>
#include <limits>

#include "rate_upload/slab_stack.h"

/// In place of a moment: the end date that the job's row gives.
inline constexpr int64_t kJobsEndDate = std::numeric_limits<int64_t>::min();

/// One statement: a rate ends, or is deleted.
struct rate_statement {
  const char* rate_id;  ///< as the database wrote it, null when empty; the stored rate's own
  int64_t end;          ///< seconds since the epoch, or kJobsEndDate; unused by a deletion
};

/// They are sent newest first.
using statement_list = slab_stack<rate_statement>;
