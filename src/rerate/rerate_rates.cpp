#include "rerate/rerate_rates.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/qvn_log.h"
#include "base/qvn_stopwatch.h"
#include "rate/rate_query.h"
#include "rerate/call_pricing.h"

namespace {

constexpr const char* kLogSource = "qvn_rerate";
constexpr const char* kLabel = "Rerate Rate";

// --- one rate --------------------------------------------------------------------------------

enum rate_column : std::size_t {
  kCode,
  kRateId,
  kRateTableId,
  kTimeProfileId,
  kEffectiveDate,
  kEndDate,
  kRate,
  kRateType,
  kIntraRate,
  kInterRate,
  kLocalRate,
  kZone,
  kSetupFee,
  kMinTime,
  kGraceTime,
  kInterval,
  kSeconds,
  kCodeName,
  kCountry,
  kRateColumns,
};

float money(const char* text) {
  return static_cast<float>(std::strtod(text, nullptr));  // to single precision
}

float rate_or_none(const char* text) {
  return *text ? money(text) : kNoRate;
}

/// "hours:minutes" with a sign, or hours alone.
void read_zone(const char* text, rate_node& rate) {
  rate.zone_hours = qvn_number<int32_t>(text);
  const char* const colon = std::strchr(text, ':');
  if (colon) {
    const auto minutes = qvn_number<uint32_t>(colon + 1);
    rate.zone_minutes = static_cast<int32_t>(*text == '-' ? 0U - minutes : minutes);
  }
}

rate_node* make_rate(std::span<char*> fields, int64_t effective_date, int64_t end_date) {
  rate_node* const rate = rate_node_create({.code = fields[kCode],
                                            .code_name = fields[kCodeName],
                                            .country = fields[kCountry],
                                            .rate_id = fields[kRateId],
                                            .rate_table_id = fields[kRateTableId],
                                            .time_profile_id = fields[kTimeProfileId]});
  if (!rate) {
    return nullptr;
  }
  rate->seconds = qvn_number<uint16_t>(fields[kSeconds]);
  rate->interval = qvn_number<uint16_t>(fields[kInterval]);
  rate->min_time = qvn_number<uint16_t>(fields[kMinTime]);
  rate->grace_time = qvn_number<uint16_t>(fields[kGraceTime]);
  rate->effective_date = effective_date;
  rate->end_date = end_date;
  rate->rate = rate_or_none(fields[kRate]);
  rate->intra_rate = rate_or_none(fields[kIntraRate]);
  rate->inter_rate = rate_or_none(fields[kInterRate]);
  rate->local_rate = rate_or_none(fields[kLocalRate]);
  rate->setup_fee = money(fields[kSetupFee]);
  rate->rate_type = *fields[kRateType];
  read_zone(fields[kZone], *rate);
  return rate;
}

void create_rate_ext(std::span<char*> fields, rate_node_tree& tree, rerate_task& task) {
  const auto effective_date = qvn_number<int64_t>(fields[kEffectiveDate]);
  const auto end_date = qvn_number<int64_t>(fields[kEndDate]);
  // The range has not been moved yet when rates of a fixed date are loaded: such a rate may be left
  // out although the calls near the range's ends would want it.
  if (effective_date > task.range.to || (end_date != 0 && end_date < task.range.from)) {
    return;
  }
  rate_node* const rate = make_rate(fields, effective_date, end_date);
  rp_hash_node* const node = rate ? tree.create(fields[kRateTableId], fields[kCode]) : nullptr;
  if (!node) {
    rate_node_drop(rate);
    task.reference.lost = true;
    return;
  }
  rate_node_link(node, rate);
}

// --- the rates of a trunk --------------------------------------------------------------------

/// The rates that have not ended at `date`; null when there are none or not all of them came.
std::shared_ptr<const rerate_rates> load_rates(rerate_task& task, const rerate_trunk& trunk,
                                               int64_t date) {
  const qvn_stopwatch counter(task.figures.rate_load_seconds);
  const auto rates = std::make_shared<rerate_rates>();
  rates->date = date;
  const std::string sql = rerate_rates_copy(trunk.rate_table_id, date);
  const pg_copy_end end = qvn_pg_copy_fields(
      task.connection.get(), sql.c_str(), kRateColumns, kLabel,
      [&](std::span<char*> fields) { create_rate_ext(fields, rates->tree, task); });
  return end == pg_copy_end::whole && rates->tree.root() ? rates : nullptr;
}

/// The same rates, loaded for another trunk, ingress side first; null when there are none.
std::shared_ptr<const rerate_rates> find_same_rates(const rerate_task& task,
                                                    const rerate_trunk& wanting, int64_t date) {
  for (const rerate_trunk& other : task.reference.trunks) {
    if (other.rates && other.rates->date == date && other.rate_table_id == wanting.rate_table_id) {
      return other.rates;
    }
  }
  return nullptr;
}

rerate_outcome provide_fixed_rates(rerate_task& task, rerate_trunk& trunk) {
  trunk.rates = find_same_rates(task, trunk, trunk.rate_date);
  if (!trunk.rates) {
    trunk.rates = load_rates(task, trunk, trunk.rate_date);
  }
  if (trunk.rates) {
    return {};
  }
  return rerate_fail(rerate_error::reference_data, "Get %s %s rate failed", side_name(trunk.side),
                     trunk.alias.c_str());
}

rerate_outcome provide_rates_of_day(rerate_task& task, rerate_trunk& trunk, const rerate_day& day) {
  trunk.rates = find_same_rates(task, trunk, day.start);
  if (trunk.rates) {
    return {};
  }
  const int64_t seconds_before = task.figures.rate_load_seconds;
  trunk.rates = load_rates(task, trunk, day.start);
  if (!trunk.rates) {
    return rerate_fail(rerate_error::reference_data, "Get %s trunk %s rate failed",
                       side_name(trunk.side), trunk.alias.c_str());
  }
  QVN_LOG(kLogNotice,
          "Rerate task %u Loading rate done, elapsed %ld(s), rate table id %s effective date as "
          "cdr date %s\n",
          task.id, task.figures.rate_load_seconds - seconds_before, trunk.rate_table_id.c_str(),
          day.date.c_str());
  return {};
}

// --- all trunks ------------------------------------------------------------------------------

/// Calls are not priced with half of the reference data.
rerate_outcome check_whole(const rerate_task& task) {
  if (!task.reference.lost) {
    return {};
  }
  if (!task.is_connected()) {
    return {rerate_error::connection};  // what broke it has been logged
  }
  return rerate_fail_without_memory(task.id);
}

/// All at once, before the first is loaded: days are not to lie in memory side by side, and a trunk
/// must not share rates of the day before.
void forget_rates_of_last_day(rerate_task& task) {
  for (rerate_trunk& trunk : task.reference.trunks) {
    if (trunk.follows_call_date()) {
      trunk.rates.reset();
    }
  }
}

void show_rate_load(rerate_task& task, call_side side, const std::string& date) {
  rerate_task_progress_update(task, qvn_format("Loading rate same as CDR time %s", date.c_str()),
                              rerate_status::loading_rates);
  QVN_LOG(kLogDebug, "Rerate task %d loading %s rate same as CDR time %s\n",
          static_cast<int>(task.id), side_name(side), date.c_str());
}

}  // namespace

std::string rerate_rates_copy(const std::string& rate_table_id, int64_t date) {
  return rates_not_ended_copy(
      "code, rate_id, rate_table_id, time_profile_id, extract(epoch from (effective_date)) as "
      "effective_date, extract(epoch from (end_date)) as end_date, rate, rate_type, intra_rate, "
      "inter_rate, local_rate, zone, setup_fee, min_time, grace_time, interval, seconds, "
      "code_name, country",
      rate_table_id, date);
}

rerate_outcome rerate_load_fixed_rates(rerate_task& task) {
  for (rerate_trunk& trunk : task.reference.trunks) {
    if (!trunk.is_rated() || trunk.rate_date == 0) {
      continue;
    }
    if (const auto outcome = provide_fixed_rates(task, trunk); outcome.failed()) {
      return outcome;
    }
  }
  return check_whole(task);
}

rerate_outcome rerate_load_rates_of_day(rerate_task& task, const rerate_day& day) {
  forget_rates_of_last_day(task);
  task.reference.lost = false;
  bool shown = false;
  for (rerate_trunk& trunk : task.reference.trunks) {
    if (!trunk.follows_call_date()) {
      continue;
    }
    if (!std::exchange(shown, true)) {
      show_rate_load(task, trunk.side, day.date);
    }
    if (const auto outcome = provide_rates_of_day(task, trunk, day); outcome.failed()) {
      return outcome;
    }
  }
  return check_whole(task);
}
