/// The database write of an import. The job's worker thread.
#pragma once

struct rate_upload_task;

/// Writes the accepted lines into table `rate`, then carries out the queued end dates and
/// deletions: new rates are in before old ones are ended, so that no failure leaves a code without
/// a price. Throws std::bad_alloc when memory runs out.
void rate_upload_write(rate_upload_task& task);
