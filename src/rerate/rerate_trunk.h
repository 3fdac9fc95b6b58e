/// One trunk of a rerating: an item of the job row's trunk text, and what is loaded for it. Made
/// and used by the job's worker thread.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>

#include "rate/qvn_rate_table.h"
#include "rerate/call_pricing.h"
#include "rerate/cdr_columns.h"

/// Settings of a rate table. The rating uses those of the jurisdiction and its country.
struct rate_table_settings {
  uint8_t jur_type = 0;
  uint8_t rate_type = 0;
  jurisdiction_settings jurisdiction;
  std::string currency_id;
  std::string rate_table_id;
  std::string jurisdiction_country_id;
  float lnp_dipping_rate = 0.0F;
};

/// The rates of one rate table that had not ended at a date.
struct rerate_rates {
  int64_t date = 0;     ///< seconds since the epoch
  rate_node_tree tree;  ///< rate table id, then code
};

struct rerate_trunk {
  explicit rerate_trunk(call_side of) : side(of) {}

  [[nodiscard]] bool is_rated() const { return enabled == 1; }
  /// Whether each day is rated by the rates in force when it begins.
  [[nodiscard]] bool follows_call_date() const { return is_rated() && rate_date == 0; }

  const call_side side;
  std::string id;             ///< the trunk's resource id, at most 63 characters
  std::string rate_table_id;  ///< at most 63 characters; set when rated, as the date
  uint8_t enabled = 0;        ///< 1: its calls are rated
  int64_t rate_date = 0;      ///< rates in force at that second; 0: those of each day
  std::shared_ptr<const rerate_rates> rates;  ///< null until loaded; other trunks may share it
  std::unique_ptr<rate_table_settings> rate_table;  ///< null until loaded
  bool is_known = false;                            ///< there is a row of its settings
  std::string alias;                                ///< its name in texts, at most 99 characters
  uint8_t rate_decimal = 0;                         ///< decimals of a cost
  uint8_t rate_rounding = 0;                        ///< how the others are dropped
};

/// The ingress trunks, then the egress trunks, each in the reverse order of their trunk text.
using rerate_trunk_list = std::list<rerate_trunk>;

/// Reads the trunk text of a side, items "trunk id,flag,rate table id,rate date" between ";", and
/// puts a trunk for each at the end of the list. False when an item lacks a comma, an id or a flag,
/// or, with a flag of 1, a rate table or a date; the items before it are in the list. Throws
/// std::bad_alloc when memory runs out.
[[nodiscard]] bool rerate_trunk_text_parse(std::string_view text, call_side side,
                                           rerate_trunk_list& trunks);
