// Trees of rates, time profiles and jurisdictions for the pricing tests.
#pragma once

#include <string>

#include "rate/qvn_rate_table.h"
#include "rerate/call_pricing.h"

/// Pricing terms with trees of their own; the lists are kept as the loading keeps them.
class pricing_world {
 public:
  ~pricing_world() {
    (void)rp_hash_destroy(&terms.codes, delete_rate_node);
    (void)rp_hash_destroy(&terms.time_profiles, delete_time_profile_node);
    (void)rp_hash_destroy(&terms.jurisdictions, delete_jurisdiction_prefix_node);
  }

  /// A rate per minute in steps of a second, valid for ever; change what a case is about.
  rate_node& add_rate(const std::string& code, const std::string& rate_id, float rate,
                      int64_t effective_date = 0, const std::string& time_profile_id = "") {
    rate_node* const node = rate_node_create({.code = code,
                                              .code_name = "name of " + code,
                                              .country = "country",
                                              .rate_id = rate_id,
                                              .rate_table_id = "7",
                                              .time_profile_id = time_profile_id});
    node->rate = rate;
    node->intra_rate = node->inter_rate = node->local_rate = kNoRate;
    node->seconds = 60;
    node->interval = 1;
    node->effective_date = effective_date;
    rate_node_link(rp_hash_create(&terms.codes, code.c_str()), node);
    return *node;
  }

  time_profile_node& add_time_profile(const std::string& id) {
    time_profile_node* const node = time_profile_node_create(id);
    time_profile_node_link(rp_hash_create(&terms.time_profiles, id.c_str()), node);
    return *node;
  }

  void add_jurisdiction(const std::string& prefix, const std::string& id,
                        const std::string& jurisdiction) {
    jurisdiction_prefix_node_link(rp_hash_create(&terms.jurisdictions, prefix.c_str()),
                                  jurisdiction_prefix_node_create(id, jurisdiction));
  }

  pricing_terms terms;
};
