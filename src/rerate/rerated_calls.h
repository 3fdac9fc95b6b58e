/// The calls of one trunk and day on their way from the COPY to the CDR file: each is priced the
/// moment it arrives and waits in a spool, so that a day may be larger than the memory and a file
/// is there whole or not at all. The job's worker thread.
#pragma once

#include <cstdint>

#include "base/qvn_function_ref.h"
#include "rerate/cdr_pricer.h"
#include "rerate/cdr_spool.h"

class rerated_calls {
 public:
  /// As cdr_pricer; the folder is that of the CDR file and must outlive the calls.
  rerated_calls(const qvn_job_folder& folder, call_side side, const pricing_terms& terms,
                int64_t rates_date, std::size_t columns)
      : pricer_(side, terms, rates_date, columns), lines_(folder), unmatched_(folder) {}

  /// Prices a call by its line, which is written to. Throws std::bad_alloc when memory runs out;
  /// no call may be added then.
  void add(char* line);

  /// Puts all lines into the spool, of which there is one from now on, unless it could not be made.
  /// Throws as add().
  void finish();

  /// Calls added.
  [[nodiscard]] uint32_t count() const { return count_; }

  /// The lines of the CDR file.
  [[nodiscard]] const cdr_spool& lines() const { return lines_; }

  /// Calls that found no rate; and each of them in order, but those lost to `unmatched_error()`,
  /// the spool's.
  [[nodiscard]] uint32_t unmatched_count() const { return out_.unmatched_count; }
  [[nodiscard]] int unmatched_error() const { return unmatched_.error(); }
  void each_unmatched(
      qvn_function_ref<void(const char* session_id, const char* ani, const char* billed_number)>
          take) const;

 private:
  cdr_pricer pricer_;
  priced_calls out_;
  cdr_spool lines_;
  cdr_spool unmatched_;
  uint32_t count_ = 0;
};
