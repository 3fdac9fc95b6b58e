/// The three files of an import: the rate deck is validated, its refused lines go into the import
/// log and the reimport file. The job's worker thread.
#pragma once

struct rate_upload_task;

/// Validates the deck: accepted lines become import records, refused ones go to the result files.
/// False, with the task failed, when the deck cannot be used or memory runs out. May also throw
/// std::bad_alloc.
[[nodiscard]] bool rate_upload_process_file(rate_upload_task& task);
