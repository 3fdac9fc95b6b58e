#include "rerate/rerate_settings.h"

#include <cstdlib>
#include <new>

#include "base/qvn_log.h"

namespace {

constexpr const char* kLogSource = "qvn_rerate";

void rerate_resource_create(const pg_row& row, rerate_trunk& trunk, rerate_reference& reference) {
  constexpr std::size_t kMostAliasCharacters = 99;
  constexpr int kColumns = 4;
  if (!row.has_columns(kColumns)) {
    reference.lost = true;
    return;
  }
  trunk.is_known = true;
  trunk.rate_decimal = row.number<uint8_t>(2);
  trunk.rate_rounding = row.number<uint8_t>(3);
  try {
    trunk.alias = qvn_cut(row.text(1), kMostAliasCharacters);
  } catch (const std::bad_alloc&) {
    // The trunk goes without: the alias is for texts only.
  }
}

std::unique_ptr<rate_table_settings> make_rate_table(const pg_row& row) {
  auto table = std::make_unique<rate_table_settings>();
  table->rate_table_id = row.text(0);
  table->jur_type = row.number<uint8_t>(1);
  table->rate_type = row.number<uint8_t>(2);
  table->lnp_dipping_rate = static_cast<float>(std::strtod(row.text(3), nullptr));
  table->jurisdiction_country_id = row.text(4);
  table->currency_id = row.text(5);
  table->jurisdiction.prefix = row.text(6);
  table->jurisdiction.noprefix_min_length = row.number<uint8_t>(7);
  table->jurisdiction.noprefix_max_length = row.number<uint8_t>(8);
  table->jurisdiction.prefix_min_length = row.number<uint8_t>(9);
  table->jurisdiction.prefix_max_length = row.number<uint8_t>(10);
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
  const std::string sql = rerate_resource_query(trunk.id);
  // Without a row the trunk has no alias and its costs no decimals.
  if (qvn_pg_select(task.connection.get(), sql.c_str(), [&](const pg_row& row) {
        rerate_resource_create(row, trunk, task.reference);
      }) < 0) {
    task.reference.lost = true;
  }
}

rerate_outcome load_rate_table(rerate_task& task, rerate_trunk& trunk) {
  const std::string sql = rerate_rate_table_query(trunk.rate_table_id);
  (void)qvn_pg_select(task.connection.get(), sql.c_str(),
                      [&](const pg_row& row) { rerate_rate_table_create(row, trunk); });
  if (trunk.rate_table) {
    return {};
  }
  return rerate_fail(rerate_error::reference_data, "Get %s rate table %s failed",
                     side_name(trunk.side), trunk.rate_table_id.c_str());
}

}  // namespace

std::string rerate_resource_query(const std::string& trunk_id) {
  return qvn_format(
      "SELECT resource_id,alias,rate_decimal,rate_rounding from resource where resource_id = '%s'",
      trunk_id.c_str());
}

std::string rerate_rate_table_query(const std::string& rate_table_id) {
  return qvn_format(
      "select rate_table_id, jur_type, rate_type, lnp_dipping_rate, jurisdiction_country_id, "
      "currency_id, jurisdiction_prefix, noprefix_min_length, noprefix_max_length, "
      "prefix_min_length, prefix_max_length  from rate_table where rate_table_id = '%s'",
      rate_table_id.c_str());
}

rerate_outcome rerate_load_settings(rerate_task& task) {
  rerate_outcome outcome;
  for (rerate_trunk& trunk : task.reference.trunks) {
    load_resource(task, trunk);
    if (trunk.is_rated()) {
      outcome = load_rate_table(task, trunk);
    }
    if (outcome.failed()) {
      break;
    }
  }
  return outcome;
}
