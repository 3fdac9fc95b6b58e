/// Prices the calls of one trunk and day as they come: the line of each in, the line of its CDR
/// file out. Pure: no connection, clock, file or log. One thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "rerate/cdr_columns.h"
#include "rerate/cdr_rater.h"

/// What has come out so far. The caller takes it away when it has grown.
struct priced_calls {
  std::string lines;      ///< of the CDR file, in the order of the calls
  std::string unmatched;  ///< session id, ani and billed number of each call that found no rate, in
                          ///< order, a NUL behind each text
};

class cdr_pricer {
 public:
  /// For records of so many columns. The terms' trees must outlive the pricer. `rates_date` is the
  /// date that the rates were loaded for, seconds since the epoch.
  cdr_pricer(call_side side, const pricing_terms& terms, int64_t rates_date, std::size_t columns)
      : rater_(side, terms, rates_date), columns_(fields_.data(), columns) {}
  cdr_pricer(const cdr_pricer&) = delete;
  cdr_pricer& operator=(const cdr_pricer&) = delete;

  /// Takes a call's line, which is written to; it may end in a line feed. Calls come out in the
  /// order in which they went in, perhaps later than they did. Throws std::bad_alloc when memory
  /// runs out; nothing more may be added then.
  void add(char* line, priced_calls& out);

  /// Lets out what was kept back.
  void finish(priced_calls& out);

 private:
  cdr_rater rater_;
  std::array<std::string_view, kCdrColumnsWithQ850> fields_;
  cdr_columns columns_;
};
