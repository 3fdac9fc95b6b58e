#include "tools/price_explain.h"

#include <algorithm>
#include <array>

#include "base/qvn_text.h"
#include "rerate/cdr_pricer.h"
#include "rerate/price_texts.h"
#include "tools/text_table.h"

namespace {

/// "Label       text" on a line of its own.
std::string line(std::string label, const std::string& text) {
  constexpr std::size_t kLabelWidth = 14;
  label.resize(kLabelWidth, ' ');
  return label + text + "\n";
}

// --- which price of the rate -----------------------------------------------------------------

const char* price_column(price_rule rule) {
  switch (rule) {
    case price_rule::local:
      return "local_rate";
    case price_rule::same_state:
      return "intra_rate";
    case price_rule::other_states:
      return "inter_rate";
    default:
      return "rate";
  }
}

const char* jurisdiction_id(const rp_hash_node& prefix) {
  return qvn_or_empty(static_cast<const jurisdiction_prefix_node*>(prefix.items)->jurisdiction_id);
}

/// The prefix that a node of the tree stands for.
std::string key_of(const rp_hash_node* node) {
  std::string key;
  for (; node && node->ch != 0; node = node->parent) {
    key.insert(key.begin(), static_cast<char>(node->ch));
  }
  return key;
}

std::string state_text(const char* who, const rp_hash_node* prefix) {
  return prefix ? qvn_format("%s in %s (prefix %s)", who,
                             price_shown(jurisdiction_id(*prefix)).c_str(),
                             price_shown(key_of(prefix)).c_str())
                : qvn_format("%s in none", who);
}

std::string bounds_text(const jurisdiction_settings& settings, std::string_view ani) {
  const ani_bounds bounds = bounds_of(settings, ani);
  return qvn_format("the calling number has %zu digits, not %d to %d as one %s prefix %s",
                    ani.size(), bounds.shortest, bounds.longest,
                    bounds.with_prefix ? "with" : "without", price_shown(settings.prefix).c_str());
}

/// Why the states of the two numbers are not looked at, or what is known of them.
std::string states_text(const price_question& question, const call_facts& call) {
  const std::string& country = question.trunk.rate_table->jurisdiction_country_id;
  if (country.empty()) {
    return "none: the rate table has no jurisdiction country";
  }
  if (!question.asks_for_jurisdictions) {
    return "not asked for (--jurisdictions)";
  }
  if (!question.terms.jurisdictions) {
    return "no prefixes of country " + price_shown(country);
  }
  const call_states states = states_of(question.terms, call);
  return state_text("caller", states.caller) + ", " + state_text("called", states.called);
}

/// Why a call that is local is not priced as one; empty for others.
std::string local_text(const pricing_terms& terms, const call_facts& call) {
  if (call.rate_type != kRateTypeLocal) {
    return "";
  }
  return terms.local_rates ? "local, but the rate has no local_rate; "
                           : "local, but that is not asked for (--local-rates); ";
}

std::string jurisdiction_text(const price_question& question, const call_facts& call,
                              price_rule rule) {
  switch (rule) {
    case price_rule::ani_length:
      return bounds_text(question.terms.jurisdiction, call.ani);
    case price_rule::local:
      return "local: the call's rate type is 5";
    case price_rule::same_state:
      return local_text(question.terms, call) + "intra: " + states_text(question, call);
    case price_rule::other_states:
      return local_text(question.terms, call) + "inter: " + states_text(question, call);
    default:
      return local_text(question.terms, call) + states_text(question, call);
  }
}

// --- time and cost ---------------------------------------------------------------------------

/// A setting of the rate of which only a part counts.
std::string counted(const char* name, uint16_t stored, uint8_t counts) {
  return stored == counts ? "" : qvn_format(" (%s %d counts as %d)", name, stored, counts);
}

std::string time_text(const rate_node& rate, const call_facts& call, const call_charge& charge) {
  const charge_units units = units_of(rate);
  const std::string notes = counted("interval", rate.interval, units.interval) +
                            counted("seconds", rate.seconds, units.seconds);
  switch (charge.time) {
    case time_rule::nothing:
      return qvn_format("0 s: duration, seconds or interval is 0%s", notes.c_str());
    case time_rule::minimum:
      return qvn_format("%d s: the minimum, for a call of %ld s%s", charge.bill_time, call.duration,
                        notes.c_str());
    case time_rule::increments:
      break;
  }
  return qvn_format("%d s: %ld s in steps of %d s, minimum %d s%s%s", charge.bill_time,
                    call.duration, units.interval, rate.min_time, notes.c_str(),
                    charge.bill_time < call.duration ? "; each 65,536 s count as 0" : "");
}

std::string cost_text(const call_price& price, const call_facts& call) {
  const rate_node& rate = *price.record;
  const call_charge& charge = price.charge;
  if (charge.within_grace) {
    return qvn_format("0: %ld s is shorter than the grace time of %d s", call.duration,
                      rate.grace_time);
  }
  if (charge.time == time_rule::nothing) {
    return "0";
  }
  return qvn_format("setup fee %s + %d s / %d s x %s = %s", price_amount(rate.setup_fee).c_str(),
                    charge.bill_time, units_of(rate).seconds,
                    price_amount(price.choice.rate).c_str(),
                    price_amount(charge.full_cost).c_str());
}

const char* rounding_rule(const pricing_terms& terms) {
  constexpr uint8_t kAllDecimals = 6;
  if (terms.rate_decimal >= kAllDecimals) {
    return "all that are written";
  }
  if (terms.rate_decimal == 0) {
    return "without decimals nothing rounds up";
  }
  switch (terms.rate_rounding) {
    case 0:
      return "any dropped digit rounds up";
    case 2:
      return "a first dropped digit above 4 rounds up";
    default:
      return "the others are cut off";
  }
}

std::string rounding_text(const pricing_terms& terms, const call_charge& charge) {
  return qvn_format("%d decimals, %s (rate_rounding %d): %s", terms.rate_decimal,
                    rounding_rule(terms), terms.rate_rounding, price_amount(charge.cost).c_str());
}

// --- the columns -----------------------------------------------------------------------------

std::array<std::string_view, kCdrColumns> column_names() {
  std::array<std::string_view, kCdrColumns> names;
  std::string_view left = kCdrColumnList;
  for (std::string_view& name : names) {
    name = left.substr(0, left.find(','));
    left.remove_prefix(std::min(name.size() + 1, left.size()));
  }
  return names;
}

std::string in_file(std::string_view text) {
  return text.empty() ? "NULL" : price_shown(text);
}

/// The columns by name as the CDR file has them, those that pricing writes with what they were in a
/// recorded call.
std::string columns_text(const price_question& question, const cdr_line& call,
                         const call_price& price) {
  price_texts texts(question.trunk.side, question.trunk.rates->date);
  const std::span<const std::string_view> written = texts.of(price);
  const std::span<const cdr_column> columns = texts.columns().first(written.size());
  const auto names = column_names();
  std::vector<std::vector<std::string>> table;
  for (std::size_t column = 0, next = 0; column < kCdrColumns; ++column) {
    const bool is_written = next < columns.size() && columns[next] == column;
    const std::string before = in_file(call[column]);
    if (is_written) {
      table.push_back({std::string(names[column]), in_file(written[next++]),
                       question.is_recorded ? "was " + before : ""});
    } else if (question.all_columns) {
      table.push_back({std::string(names[column]), before});
    }
  }
  return text_table(table);
}

// --- all of it -------------------------------------------------------------------------------

std::string call_text(const price_question& question, const cdr_line& call,
                      const call_facts& facts) {
  const rerate_trunk& trunk = question.trunk;
  const std::string session = price_shown(call[kSessionId]);
  return line("Call", (question.is_recorded ? "session " + session : "made up") + ", " +
                          side_name(trunk.side) + " trunk " + price_shown(trunk.id) + " " +
                          price_shown(trunk.alias)) +
         line("Number", price_shown(facts.billed_number) +
                            (billed_number_column(call) == kRoutingDigits ? " (routing_digits)"
                                                                          : " (lrn_dnis)") +
                            ", calling number " +
                            (facts.ani.empty() ? "none" : price_shown(facts.ani))) +
         line("Began",
              price_moment(facts.start_second) + " UTC, " + std::to_string(facts.duration) + " s");
}

std::string rates_text(const rerate_trunk& trunk, const std::string& table) {
  return line("Rates", "of rate table " + price_shown(trunk.rate_table_id) + ", loaded for " +
                           price_moment(trunk.rates->date)) +
         (table.empty() ? "  none of a code that the number begins with\n" : table);
}

std::string price_text(const call_price& price) {
  const rate_node& rate = *price.record;
  const std::string name = price_column(price.choice.rule);
  const std::string of = " of rate " + price_shown(qvn_or_empty(rate.rate_id)) + ", code " +
                         price_shown(qvn_or_empty(rate.code)) + " " +
                         price_shown(qvn_or_empty(rate.code_name));
  if (price.choice.rate == kNoRate) {
    return name + of + ": is empty";
  }
  return name + " " + price_amount(price.choice.rate) + of +
         (price.is_priced ? ", rate type " + std::to_string(price.choice.rate_type)
                          : ": all below 0.000001 counts as no price");
}

std::string cost_lines(const pricing_terms& terms, const call_facts& facts,
                       const call_price& price) {
  const call_charge& charge = price.charge;
  const bool is_free = charge.within_grace || charge.time == time_rule::nothing;
  return line("Billed time", time_text(*price.record, facts, charge)) +
         line("Cost", cost_text(price, facts)) +
         (is_free ? "" : line("Decimals", rounding_text(terms, charge))) +
         line("Result", price_amount(charge.cost));
}

/// From the price to the cost, or up to what leaves the call without.
std::string result_text(const price_question& question, const call_facts& facts,
                        const call_price& price) {
  if (!price.record) {
    return line("Result", "no rate applies");
  }
  return line("Jurisdiction", jurisdiction_text(question, facts, price.choice.rule)) +
         line("Price", price_text(price)) +
         (price.is_priced ? cost_lines(question.terms, facts, price) : line("Result", "no price"));
}

}  // namespace

price_explanation price_explain(const price_question& question, const cdr_line& call,
                                const call_facts& facts,
                                const std::vector<unloaded_rate>& unloaded) {
  const price_walk walk =
      price_walk_rates(question.terms, facts, question.trunk.rates->date, unloaded);
  const call_price price = price_call(question.terms, walk.chosen, facts);
  return {price.is_priced,
          call_text(question, call, facts) + rates_text(question.trunk, walk.text) +
              result_text(question, facts, price) +
              line("CDR file", price.is_priced ? "gets these columns"
                                               : "gets -1 as the price, the other columns stay") +
              columns_text(question, call, price)};
}
