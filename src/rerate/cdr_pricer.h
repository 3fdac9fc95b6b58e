/// Prices the calls of one trunk and day as they come: the line of each in, the line of its CDR
/// file out. Pure: no connection, clock, file or log. One thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "rerate/call_pricing.h"
#include "rerate/cdr_columns.h"
#include "rerate/cdr_line.h"
#include "rerate/price_texts.h"

/// What has come out so far. The caller takes it away when it has grown.
struct priced_calls {
  std::string lines;      ///< of the CDR file, in the order of the calls
  std::string unmatched;  ///< session id, ani and billed number of each call that found no rate, in
                          ///< order, a NUL after each text
  uint32_t unmatched_count = 0;  ///< such calls so far, also those that were taken away
};

/// The column that holds the number to be billed, which the record's kind of number decides.
[[nodiscard]] cdr_column billed_number_column(const cdr_line& line);

/// What the pricing of a side takes from a record. The texts are the line's.
[[nodiscard]] call_facts facts_of(const cdr_line& line, call_side side);

/// Calls wait in the pricer until there are sixteen: their codes are searched together. It takes
/// 11 KiB itself and 36 KiB on the heap, or about twice the longest line if that is more; once that
/// is there only what comes out takes memory.
class cdr_pricer {
 public:
  /// For records of so many columns. The terms' trees must outlive the pricer. `rates_date` is the
  /// date that the rates were loaded for, seconds since the epoch.
  cdr_pricer(call_side side, const pricing_terms& terms, int64_t rates_date, std::size_t columns);
  cdr_pricer(const cdr_pricer&) = delete;
  cdr_pricer& operator=(const cdr_pricer&) = delete;

  /// Takes a call's line, which may be written to; it may end in a line feed. Calls come out in the
  /// order in which they went in, perhaps later than they did. Throws std::bad_alloc when memory
  /// runs out; nothing more may be added then.
  void add(char* line, priced_calls& out);

  /// Lets out what was kept back.
  void finish(priced_calls& out);

 private:
  /// Memory to work in.
  class workspace {
   public:
    /// At least so many bytes; what they held may be gone. Throws std::bad_alloc.
    char* with_room(std::size_t bytes);
    [[nodiscard]] std::size_t size() const { return size_; }

   private:
    std::unique_ptr<char[]> memory_;
    std::size_t size_ = 0;
  };

  struct waiting_call {
    cdr_line line;
    call_facts facts;
  };

  /// Memory for the line's texts. Prices the waiting calls if theirs take too much.
  char* memory_for(std::size_t room, priced_calls& out);
  void price(const waiting_call& call, const rp_hash_node* longest_code, priced_calls& out);
  void let_out(const cdr_line& line, std::span<const std::string_view> texts, priced_calls& out);

  const call_side side_;
  price_texts texts_;
  const pricing_terms terms_;
  const std::size_t columns_;

  std::array<waiting_call, kRpHashInFlight> calls_;
  std::size_t waiting_ = 0;
  workspace waiting_texts_;
  std::size_t texts_used_ = 0;
  workspace joined_line_;
};
