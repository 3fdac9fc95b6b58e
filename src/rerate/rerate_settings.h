/// The settings of a job's trunks and of their rate tables, in the job's worker thread.
#pragma once

#include "rerate/rerate_task.h"

/// Loads each trunk's settings and, if it is rated, those of its rate table, ingress side first.
/// Fails when a rate table is missing. Throws std::bad_alloc when memory runs out.
[[nodiscard]] rerate_outcome rerate_load_settings(rerate_task& task);

/// The queries for a trunk's settings and for those of its rate table. Both throw as above.
[[nodiscard]] std::string rerate_resource_query(const std::string& trunk_id);
[[nodiscard]] std::string rerate_rate_table_query(const std::string& rate_table_id);
