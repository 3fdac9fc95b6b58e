/// Loading what calls are rated with: time profiles, jurisdictions, and for each trunk its
/// settings, its rate table's settings and its rates.

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "base/qvn_log.h"
#include "base/qvn_stopwatch.h"
#include "base/qvn_text.h"
#include "base/qvn_time.h"
#include "db/qvn_pg_rows.h"
#include "rate/qvn_rate_table.h"
#include "rate/rate_query.h"
#include "rerate/rerate_task.h"

namespace {

constexpr const char* kLogSource = "qvn_rerate";
constexpr const char* kLabel = "Rerate";
constexpr const char* kRateLabel = "Rerate Rate";

/// Remembers that a row was lost; the load goes on to its end.
void lost(rerate_task& task) {
  task.reference_data_lost = true;
}

// --- time profiles
// -----------------------------------------------------------------------------------

void read_clock_time(const char* text, const char* profile_id, int32_t& hour, int32_t& minute,
                     int32_t& second) {
  if (str_nonzero(text) && qvn_strtime(text, &hour, &minute, &second) != 0) {
    QVN_LOG(kLogWarning, "The time profile invalid time %s, id is %s", text, profile_id);
  }
}

void rerate_time_profile_create(std::span<char*> fields, rerate_task& task) {
  const char* const id = fields[0];
  time_profile_node* const profile = time_profile_node_create(id);
  rp_hash_node* const node = profile ? rp_hash_create(&task.time_profiles, id) : nullptr;
  if (!node) {
    time_profile_node_drop(profile);
    QVN_LOG(kLogError, "Alloc memory for time profile tree failed\n");
    lost(task);
    return;
  }
  read_clock_time(fields[1], id, profile->start_hour, profile->start_minute, profile->start_second);
  read_clock_time(fields[2], id, profile->end_hour, profile->end_minute, profile->end_second);
  profile->start_week = qvn_number<uint16_t>(fields[3]);
  profile->end_week = qvn_number<uint16_t>(fields[4]);
  profile->type = qvn_number<uint16_t>(fields[5]);
  profile->time_zone = get_timezone_from_str(fields[6]);
  time_profile_node_link(node, profile);
}

/// None is nothing wrong: most rates apply at all hours. A table that the server does not give
/// whole counts as none, so that a profile applies to all calls of the job or to none.
void load_time_profiles(rerate_task& task) {
  constexpr std::size_t kColumns = 7;
  const pg_copy_end end = qvn_pg_copy_fields(
      task.connection.get(),
      "copy time_profile (time_profile_id, start_time, end_time, start_week, end_week, "
      "type,time_zone) to stdout delimiter as ',' csv header",
      kColumns, kLabel, [&](std::span<char*> fields) { rerate_time_profile_create(fields, task); });
  if (end != pg_copy_end::whole) {
    (void)rp_hash_destroy(&task.time_profiles, delete_time_profile_node);
    task.reference_data_lost = task.reference_data_lost || end == pg_copy_end::lost;
  }
  if (!task.time_profiles) {
    QVN_LOG(kLogNotice, "Rerate task %u not time profile data\n", task.id);
  }
}

// --- jurisdictions
// -----------------------------------------------------------------------------------

void create_jurisdiction_prefix_ext(std::span<char*> fields, rerate_task& task) {
  const char* const prefix = fields[1];
  const char* const country_id = fields[3];
  jurisdiction_prefix_node* const record = jurisdiction_prefix_node_create(fields[0], fields[2]);
  rp_hash_node* const country = record ? rp_hash_create(&task.jurisdictions, country_id) : nullptr;
  rp_hash_node* const node = country ? rp_hash_create(&country->sub, prefix) : nullptr;
  if (!node) {
    jurisdiction_prefix_node_drop(record);
    QVN_LOG(kLogError, "Alloc memory for jurisdiction prefix tree failed\n");
    lost(task);
    return;
  }
  jurisdiction_prefix_node_link(node, record);
}

bool load_jurisdictions(rerate_task& task) {
  constexpr std::size_t kColumns = 4;
  if (task.update_us_jurisdiction != 1) {
    return true;
  }
  const pg_copy_end end = qvn_pg_copy_fields(
      task.connection.get(),
      "copy jurisdiction_prefix (id, prefix, jurisdiction_id, jurisdiction_country_id) to stdout "
      "delimiter as ',' csv header",
      kColumns, kLabel,
      [&](std::span<char*> fields) { create_jurisdiction_prefix_ext(fields, task); });
  if (end == pg_copy_end::whole && task.jurisdictions) {
    return true;
  }
  QVN_LOG(kLogNotice, "Rerate task %u not jurisdiction data\n", task.id);
  task.fail(rerate_error::reference_data, "Not jurisdiction data");
  return false;
}

// --- settings of trunks and rate tables
// --------------------------------------------------------------

void rerate_resource_create(const pg_row& row, rerate_task& task, rerate_trunk& trunk) {
  constexpr std::size_t kMostAliasCharacters = 99;
  constexpr int kColumns = 4;
  if (!row.has_columns(kColumns)) {
    lost(task);
    return;
  }
  trunk.rate_decimal = row.number<uint8_t>(2);
  trunk.rate_rounding = row.number<uint8_t>(3);
  try {
    trunk.alias = qvn_cut(row.text(1), kMostAliasCharacters);
  } catch (const std::bad_alloc&) {
    // The trunk goes without: the alias is for texts only.
  }
}

std::unique_ptr<rate_table_settings> make_rate_table(const pg_row& row) {
  const auto text = [&](int column) { return row.text(column); };
  const auto number8 = [&](int column) { return row.number<uint8_t>(column); };
  auto table = std::make_unique<rate_table_settings>();
  table->rate_table_id = text(0);
  table->jur_type = number8(1);
  table->rate_type = number8(2);
  table->lnp_dipping_rate = static_cast<float>(std::strtod(text(3), nullptr));
  table->jurisdiction_country_id = text(4);
  table->currency_id = text(5);
  table->jurisdiction_prefix = text(6);
  table->noprefix_min_length = number8(7);
  table->noprefix_max_length = number8(8);
  table->prefix_min_length = number8(9);
  table->prefix_max_length = number8(10);
  return table;
}

void rerate_rate_table_create(const pg_row& row, rerate_trunk& trunk) {
  constexpr int kColumns = 11;
  if (!row.has_columns(kColumns)) {
    return;
  }
  try {
    trunk.rate_table = make_rate_table(row);
  } catch (const std::bad_alloc&) {
    QVN_LOG(kLogError, "Alloc memory for rate table tree failed, trunk id %d rate table id %s\n",
            qvn_number<int32_t>(trunk.id.c_str()), trunk.rate_table_id.c_str());
  }
}

void load_resource(rerate_task& task, rerate_trunk& trunk) {
  const std::string sql = qvn_format(
      "SELECT resource_id,alias,rate_decimal,rate_rounding from resource where resource_id = '%s'",
      trunk.id.c_str());
  // Without a row the trunk has no alias and its costs no decimals.
  if (qvn_pg_select(task.connection.get(), sql.c_str(),
                    [&](const pg_row& row) { rerate_resource_create(row, task, trunk); }) < 0) {
    task.reference_data_lost = true;
  }
}

bool load_rate_table(rerate_task& task, call_side side, rerate_trunk& trunk) {
  const std::string sql = qvn_format(
      "select rate_table_id, jur_type, rate_type, lnp_dipping_rate, jurisdiction_country_id, "
      "currency_id, jurisdiction_prefix, noprefix_min_length, noprefix_max_length, "
      "prefix_min_length, prefix_max_length  from rate_table where rate_table_id = '%s'",
      trunk.rate_table_id.c_str());
  (void)qvn_pg_select(task.connection.get(), sql.c_str(),
                      [&](const pg_row& row) { rerate_rate_table_create(row, trunk); });
  if (trunk.rate_table) {
    return true;
  }
  task.fail(rerate_error::reference_data, "Get %s rate table %s failed", side_name(side),
            trunk.rate_table_id.c_str());
  return false;
}

bool load_settings(rerate_task& task, call_side side) {
  for (rerate_trunk& trunk : task.trunks(side)) {
    load_resource(task, trunk);
    if (trunk.is_rated() && !load_rate_table(task, side, trunk)) {
      return false;
    }
  }
  return true;
}

// --- rates
// -------------------------------------------------------------------------------------------

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

void create_rate_ext(std::span<char*> fields, rerate_trunk& trunk, rerate_task& task) {
  const auto effective_date = qvn_number<int64_t>(fields[kEffectiveDate]);
  const auto end_date = qvn_number<int64_t>(fields[kEndDate]);
  if (effective_date > task.to_time || (end_date != 0 && end_date < task.from_time)) {
    return;
  }
  rate_node* const rate = make_rate(fields, effective_date, end_date);
  if (!rate) {
    lost(task);
    return;
  }
  rp_hash_node* const table = rp_hash_create(&trunk.rate_tree, fields[kRateTableId]);
  rp_hash_node* const node = table ? rp_hash_create(&table->sub, fields[kCode]) : nullptr;
  if (node) {
    rate_node_link(node, rate);
  } else {
    rate_node_drop(rate);
    lost(task);
  }
}

/// The rates that have not ended at `date`; false when there are none or not all of them came.
bool load_rates(rerate_task& task, rerate_trunk& trunk, int64_t date) {
  const std::string sql = rates_not_ended_copy(
      "code, rate_id, rate_table_id, time_profile_id, extract(epoch from (effective_date)) as "
      "effective_date, extract(epoch from (end_date)) as end_date, rate, rate_type, intra_rate, "
      "inter_rate, local_rate, zone, setup_fee, min_time, grace_time, interval, seconds, "
      "code_name, "
      "country",
      trunk.rate_table_id, date);
  const pg_copy_end end =
      qvn_pg_copy_fields(task.connection.get(), sql.c_str(), kRateColumns, kRateLabel,
                         [&](std::span<char*> fields) { create_rate_ext(fields, trunk, task); });
  trunk.loaded_rate_date = date;
  return end == pg_copy_end::whole && trunk.rate_tree;
}

/// A rated trunk, other than `wanting`, whose rates are loaded and the same; ingress side first.
rerate_trunk* find_same_rates(rerate_task& task, const rerate_trunk& wanting, int64_t date) {
  for (const call_side side : {call_side::ingress, call_side::egress}) {
    for (rerate_trunk& other : task.trunks(side)) {
      if (&other != &wanting && other.is_rated() && other.rate_tree &&
          other.loaded_rate_date == date && other.rate_table_id == wanting.rate_table_id) {
        return &other;
      }
    }
  }
  return nullptr;
}

bool load_fixed_rates(rerate_task& task, call_side side) {
  for (rerate_trunk& trunk : task.trunks(side)) {
    if (!trunk.is_rated() || trunk.rate_date == 0) {
      continue;
    }
    if (const rerate_trunk* const other = find_same_rates(task, trunk, trunk.rate_date)) {
      trunk.borrow_rates(*other);
      continue;
    }
    const qvn_stopwatch counter(task.rate_load_seconds);
    if (!load_rates(task, trunk, trunk.rate_date)) {
      task.fail(rerate_error::reference_data, "Get %s %s rate failed", side_name(side),
                trunk.alias.c_str());
      return false;
    }
  }
  return true;
}

bool load_rates_of_day(rerate_task& task, call_side side, rerate_trunk& trunk,
                       const rerate_day& day) {
  if (const rerate_trunk* const other = find_same_rates(task, trunk, day.start)) {
    trunk.borrow_rates(*other);
    return true;
  }
  const qvn_stopwatch counter(task.rate_load_seconds);
  if (!load_rates(task, trunk, day.start)) {
    task.fail(rerate_error::reference_data, "Get %s trunk %s rate failed", side_name(side),
              trunk.alias.c_str());
    return false;
  }
  QVN_LOG(kLogNotice,
          "Rerate task %u Loading rate done, elapsed %ld(s), rate table id %s effective date as "
          "cdr date %s\n",
          task.id, counter.elapsed(), trunk.rate_table_id.c_str(), day.date.c_str());
  return true;
}

/// Nobody may be left with a tree of the day before when its owner loads the next one.
void forget_rates_of_last_day(rerate_task& task) {
  for (const call_side side : {call_side::ingress, call_side::egress}) {
    for (rerate_trunk& trunk : task.trunks(side)) {
      if (trunk.follows_call_date()) {
        trunk.forget_rates();
      }
    }
  }
}

/// Nobody prices calls with half of the reference data.
bool check_whole(rerate_task& task) {
  if (!task.reference_data_lost) {
    return true;
  }
  if (PQstatus(task.connection.get()) != CONNECTION_OK) {
    task.fail(rerate_error::connection);  // what broke it has been logged
    return false;
  }
  QVN_LOG(kLogError, kRerateAllocFailed, task.id);
  task.fail(rerate_error::system, kRerateMemoryShortage);
  return false;
}

void show_rate_load(rerate_task& task, call_side side, const std::string& date) {
  rerate_task_progress_update(task,
                              qvn_format("Loading rate same as CDR time %s", date.c_str()).c_str(),
                              rerate_status::loading_rates);
  QVN_LOG(kLogDebug, "Rerate task %d loading %s rate same as CDR time %s\n",
          static_cast<int>(task.id), side_name(side), date.c_str());
}

}  // namespace

bool rerate_load_reference_data(rerate_task& task) {
  load_time_profiles(task);
  return load_jurisdictions(task) && load_settings(task, call_side::ingress) &&
         load_settings(task, call_side::egress) && load_fixed_rates(task, call_side::ingress) &&
         load_fixed_rates(task, call_side::egress) && check_whole(task);
}

bool rerate_load_rates_of_day(rerate_task& task, const rerate_day& day) {
  forget_rates_of_last_day(task);
  task.reference_data_lost = false;
  bool shown = false;
  for (const call_side side : {call_side::ingress, call_side::egress}) {
    for (rerate_trunk& trunk : task.trunks(side)) {
      if (!trunk.follows_call_date()) {
        continue;
      }
      if (!shown) {
        show_rate_load(task, side, day.date);
        shown = true;
      }
      if (!load_rates_of_day(task, side, trunk, day)) {
        return false;
      }
    }
  }
  return check_whole(task);
}
