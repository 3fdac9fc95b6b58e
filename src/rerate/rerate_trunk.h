/// One trunk of a rerating: an item of the job row's trunk text, and what is loaded for it. Made
/// and used by the job's worker thread.
#pragma once

#include <cstdint>
#include <forward_list>
#include <memory>
#include <string>
#include <string_view>

#include "rate/rp_hash.h"

/// Settings of a rate table. The rating uses the jurisdiction's country and prefix and the four
/// lengths of calling numbers.
struct rate_table_settings {
  uint8_t jur_type = 0;
  uint8_t rate_type = 0;
  uint8_t prefix_min_length = 0;
  uint8_t prefix_max_length = 0;
  uint8_t noprefix_min_length = 0;
  uint8_t noprefix_max_length = 0;
  std::string currency_id;
  std::string jurisdiction_prefix;
  std::string rate_table_id;
  std::string jurisdiction_country_id;
  float lnp_dipping_rate = 0.0F;
};

struct rerate_trunk {
  rerate_trunk() = default;
  ~rerate_trunk() { forget_rates(); }
  rerate_trunk(const rerate_trunk&) = delete;
  rerate_trunk& operator=(const rerate_trunk&) = delete;

  /// Gives the rate tree up: an owner frees it, a borrower only forgets it.
  void forget_rates();

  /// Uses the other's rate tree, which the other keeps alive.
  void borrow_rates(const rerate_trunk& owner);

  [[nodiscard]] bool is_rated() const { return enabled == 1; }
  /// Whether each day is rated by the rates in force when it begins.
  [[nodiscard]] bool follows_call_date() const { return is_rated() && rate_date == 0; }

  std::string id;                     ///< the trunk's resource id, at most 63 characters
  std::string rate_table_id;          ///< at most 63 characters; set when rated, as the date
  uint8_t enabled = 0;                ///< 1: its calls are rated
  int64_t rate_date = 0;              ///< rates in force at that second; 0: those of each day
  int64_t loaded_rate_date = 0;       ///< the date that `rate_tree` was loaded for
  bool borrowed = false;              ///< `rate_tree` is another trunk's
  rp_hash_node* rate_tree = nullptr;  ///< rate table id, then code
  std::unique_ptr<rate_table_settings> rate_table;  ///< null until loaded
  std::string alias;                                ///< its name in texts, at most 99 characters
  uint8_t rate_decimal = 0;                         ///< decimals of a cost
  uint8_t rate_rounding = 0;                        ///< how the others are dropped
};

/// In the reverse order of the trunk text.
using rerate_trunk_list = std::forward_list<rerate_trunk>;

/// Reads a trunk text, items "trunk id,flag,rate table id,rate date" between ";", and puts a trunk
/// in front of the list for each. False when an item lacks a comma, an id or a flag, or, with a
/// flag of 1, a rate table or a date; the items before it are in the list. Throws std::bad_alloc
/// when memory runs out.
[[nodiscard]] bool rerate_trunk_text_parse(std::string_view text, rerate_trunk_list& trunks);
