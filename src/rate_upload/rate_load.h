/// Loads the code decks and the stored rates of an import. The job's worker thread.
#pragma once

#include <cstdint>
#include <string>

struct rate_upload_task;

/// Loads the code decks, where the job asks for them, and the rate table's rates that have not
/// ended. False, with the task failed, when they cannot be loaded whole: with half of them the
/// import would leave overlapping prices. Throws std::bad_alloc when memory runs out.
[[nodiscard]] bool rate_upload_load(rate_upload_task& task);

/// The COPY by which the stored rates are loaded. Throws as above.
[[nodiscard]] std::string stored_rates_copy(const std::string& rate_table_id, int64_t time);
