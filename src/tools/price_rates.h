/// The rates that are looked at for a call, in lines for a person: code after code from the longest
/// on, each with what speaks against it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "rerate/call_pricing.h"

/// A rate of the rate table that a rerating does not load for the call's day.
struct unloaded_rate {
  std::string code;
  std::string rate_id;
  float rate = kNoRate;
  int64_t effective_date = 0;  ///< seconds since the epoch, as the next
  int64_t end_date = 0;        ///< 0: open
  std::string time_profile_id;
};

/// Which rate applies to a call, and how it was found.
struct price_walk {
  const rate_node* chosen = nullptr;  ///< null when none applies
  std::string text;  ///< a line for each rate that was looked at, and one for the headings; empty
                     ///< when there is none
};

/// Walks as the pricing does. The unloaded rates are shown among the others, those of codes that
/// are not reached left out. `rates_date` is the moment for which rates were loaded. Pure. Throws
/// std::bad_alloc when memory runs out, as all that follow.
[[nodiscard]] price_walk price_walk_rates(const pricing_terms& terms, const call_facts& call,
                                          int64_t rates_date,
                                          const std::vector<unloaded_rate>& unloaded);

/// A moment in UTC, "2026-03-01 12:00:00".
[[nodiscard]] std::string price_moment(int64_t time);

/// An amount of money with six decimals; "none" for one that is absent.
[[nodiscard]] std::string price_amount(float amount);

/// A text from the database or the command line, without what could disturb a terminal or the
/// lines.
[[nodiscard]] std::string price_shown(std::string_view text);
