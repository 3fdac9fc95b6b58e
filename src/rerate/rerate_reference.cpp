#include "rerate/rerate_reference.h"

#include "base/qvn_log.h"
#include "base/qvn_time.h"
#include "rerate/rerate_rates.h"
#include "rerate/rerate_settings.h"

namespace {

constexpr const char* kLogSource = "qvn_rerate";
constexpr const char* kLabel = "Rerate";

// --- time profiles ---------------------------------------------------------------------------

void read_clock_time(const char* text, const char* profile_id, int32_t& hour, int32_t& minute,
                     int32_t& second) {
  if (str_nonzero(text) && qvn_strtime(text, &hour, &minute, &second) != 0) {
    QVN_LOG(kLogWarning, "The time profile invalid time %s, id is %s", text, profile_id);
  }
}

void rerate_time_profile_create(std::span<char*> fields, rerate_reference& reference) {
  const char* const id = fields[0];
  time_profile_node* const profile = time_profile_node_create(id);
  rp_hash_node* const node = profile ? reference.time_profiles.create(id) : nullptr;
  if (!node) {
    time_profile_node_drop(profile);
    QVN_LOG(kLogError, "Alloc memory for time profile tree failed\n");
    reference.lost = true;
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
  rerate_reference& reference = task.reference;
  const pg_copy_end end = qvn_pg_copy_fields(
      task.connection.get(), kTimeProfileCopy, kColumns, kLabel,
      [&](std::span<char*> fields) { rerate_time_profile_create(fields, reference); });
  if (end != pg_copy_end::whole) {
    reference.time_profiles.clear();
    // What the server refuses it refuses again: only an answer that was lost fails the job.
    reference.lost = reference.lost || end == pg_copy_end::lost;
  }
  if (!reference.time_profiles.root()) {
    QVN_LOG(kLogNotice, "Rerate task %u not time profile data\n", task.id);
  }
}

// --- jurisdictions ---------------------------------------------------------------------------

void create_jurisdiction_prefix_ext(std::span<char*> fields, rerate_reference& reference) {
  const char* const prefix = fields[1];
  const char* const country_id = fields[3];
  jurisdiction_prefix_node* const record = jurisdiction_prefix_node_create(fields[0], fields[2]);
  rp_hash_node* const node = record ? reference.jurisdictions.create(country_id, prefix) : nullptr;
  if (!node) {
    jurisdiction_prefix_node_drop(record);
    QVN_LOG(kLogError, "Alloc memory for jurisdiction prefix tree failed\n");
    reference.lost = true;
    return;
  }
  jurisdiction_prefix_node_link(node, record);
}

rerate_outcome load_jurisdictions(rerate_task& task) {
  constexpr std::size_t kColumns = 4;
  if (task.row.update_us_jurisdiction != 1) {
    return {};
  }
  const pg_copy_end end = qvn_pg_copy_fields(
      task.connection.get(), kJurisdictionCopy, kColumns, kLabel,
      [&](std::span<char*> fields) { create_jurisdiction_prefix_ext(fields, task.reference); });
  if (end == pg_copy_end::whole && task.reference.jurisdictions.root()) {
    return {};
  }
  QVN_LOG(kLogNotice, "Rerate task %u not jurisdiction data\n", task.id);
  return rerate_fail(rerate_error::reference_data, "Not jurisdiction data");
}

}  // namespace

rerate_outcome rerate_load_reference_data(rerate_task& task) {
  load_time_profiles(task);
  for (const auto load : {load_jurisdictions, rerate_load_settings, rerate_load_fixed_rates}) {
    if (const rerate_outcome outcome = load(task); outcome.failed()) {
      return outcome;
    }
  }
  return {};
}
