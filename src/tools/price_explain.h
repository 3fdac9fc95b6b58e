/// Why a call costs what it costs, in lines for a person.
#pragma once

#include <string>
#include <vector>

#include "rerate/call_pricing.h"
#include "rerate/cdr_line.h"
#include "rerate/rerate_trunk.h"
#include "tools/price_rates.h"

/// What stands for all calls that are explained. Valid as long as what it refers to.
struct price_question {
  const rerate_trunk& trunk;  ///< with rate table and rates
  const pricing_terms& terms;
  bool asks_for_jurisdictions = false;
  bool is_recorded = false;  ///< the calls' columns are of a table, not made up
  bool all_columns = false;  ///< shows the columns that stay, too
};

struct price_explanation {
  bool is_priced = false;
  std::string text;
};

/// Prices the call with the pricing of the reratings and says how it came about. `facts` are what
/// it takes from the call, `unloaded` rates of the codes of its number that the trunk has not.
/// Pure. Throws std::bad_alloc when memory runs out.
[[nodiscard]] price_explanation price_explain(const price_question& question, const cdr_line& call,
                                              const call_facts& facts,
                                              const std::vector<unloaded_rate>& unloaded);
