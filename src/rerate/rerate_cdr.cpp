#include "rerate/rerate_cdr.h"

#include "rerate/rerate_cdr_file.h"
#include "rerate/rerate_cdr_load.h"
#include "rerate/rerate_rates.h"

pricing_terms rerate_terms(const rerate_task& task, const rerate_trunk& trunk) {
  const rate_table_settings& table = *trunk.rate_table;
  pricing_terms terms{
      .time_profiles = task.reference.time_profiles.root(),
      .jurisdiction = table.jurisdiction,
      .local_rates = task.row.update_local_rate == 1,
      .rate_decimal = trunk.rate_decimal,
      .rate_rounding = trunk.rate_rounding,
  };
  const auto sub_tree = [](rp_hash_node* const* slot, const std::string& key) {
    const rp_hash_node* const node = rp_hash_match_all(slot, key.c_str());
    return node ? node->sub : nullptr;
  };
  terms.codes = sub_tree(trunk.rates->tree.slot(), trunk.rate_table_id);
  if (task.row.update_us_jurisdiction == 1 && !table.jurisdiction_country_id.empty()) {
    terms.jurisdictions =
        sub_tree(task.reference.jurisdictions.slot(), table.jurisdiction_country_id);
  }
  return terms;
}

namespace {

/// Loads and rates the day's calls of one trunk.
rerate_outcome rerate_trunk_calls(rerate_task& task, const rerate_trunk& trunk,
                                  const rerate_day& day) {
  rerated_calls calls(task.folder, trunk.side, rerate_terms(task, trunk), trunk.rates->date,
                      task.row.include_q850 == 1 ? kCdrColumnsWithQ850 : kCdrColumns);
  if (get_rerate_cdr(task, trunk, day, calls) != 0) {
    return rerate_fail(rerate_error::cdr_load, "Rerate task %u get %s %s CDR failed", task.id,
                       trunk.alias.c_str(), day.date.c_str());
  }
  // The other party's accounting expects a file for every day of an egress trunk, an empty one too.
  if (trunk.side == call_side::ingress && calls.count() == 0) {
    return {};
  }
  calls.finish();
  if (execute_rerating(task, trunk, day.date, calls) != 0) {
    return rerate_fail(rerate_error::rating, "Rerate task %u rerate %s %s CDR failed", task.id,
                       trunk.alias.c_str(), day.date.c_str());
  }
  return {};
}

}  // namespace

rerate_outcome rerate_cdr(rerate_task& task, const rerate_day& day) {
  rerate_outcome outcome = rerate_load_rates_of_day(task, day);
  for (const rerate_trunk& trunk : task.reference.trunks) {
    if (!outcome.failed() && trunk.is_rated()) {
      outcome = rerate_trunk_calls(task, trunk, day);
    }
  }
  return outcome;
}
