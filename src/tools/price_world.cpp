#include "tools/price_world.h"

#include <memory>

#include "base/qvn_time.h"
#include "rerate/rerate_cdr.h"
#include "rerate/rerate_cdr_load.h"
#include "rerate/rerate_reference.h"

namespace {

constexpr const char* kLabel = "Price check";

/// The job row of a rerating of the call's whole day. Its two trunk texts are not used: there is
/// but one trunk.
rerate_row row_of(const price_check_options& options) {
  const int64_t moment = (options.session_id.empty() ? options.at : options.day).value_or(0);
  rerate_row row;
  row.from_time = moment - moment % kSecondsPerDay;
  row.to_time = row.from_time + kSecondsPerDay - 1;
  row.update_us_jurisdiction = options.jurisdictions ? 1 : 0;
  row.update_local_rate = options.local_rates ? 1 : 0;
  return row;
}

unloaded_rate read_unloaded(const pg_row& row) {
  return {.code = row.text(0),
          .rate_id = row.text(1),
          .rate = *row.text(2) ? static_cast<float>(std::strtod(row.text(2), nullptr)) : kNoRate,
          .effective_date = row.number<int64_t>(3),
          .end_date = row.number<int64_t>(4),
          .time_profile_id = row.text(5)};
}

}  // namespace

price_world::price_world(const price_check_options& options, pg_connection connection)
    : task_(row_of(options)),
      day_(rerate_days(task_.range.from, task_.range.to).next().value_or(rerate_day{})) {
  task_.connection = std::move(connection);
  // The rates of a day are those of a trunk whose date is the day's beginning.
  const std::string text =
      qvn_format("%s,1,%s,%ld", options.trunk_id.c_str(), options.rate_table_id.c_str(),
                 options.rate_date.value_or(day_.start));
  (void)rerate_trunk_text_parse(text, *options.side, task_.reference.trunks);
}

std::string price_world::load() {
  const rerate_outcome outcome = rerate_load_reference_data(task_);
  if (!task_.is_connected()) {
    return "the connection was lost";
  }
  if (!trunk().rate_table) {
    return qvn_format("a rerating fails: %s", outcome.text);
  }
  if (!trunk().is_known) {
    return "no trunk " + trunk().id + " in table resource";
  }
  if (!trunk().rates) {
    return go_without_rates();
  }
  return outcome.failed() ? qvn_format("a rerating fails: %s", outcome.text) : "";
}

/// A rate table without rates in force is an answer, unless it cannot be read.
std::string price_world::go_without_rates() {
  const std::string sql = qvn_format("select count(*) from rate where rate_table_id = '%s'",
                                     trunk().rate_table_id.c_str());
  bool can_be_read = false;
  (void)qvn_pg_select(connection(), sql.c_str(), [&](const pg_row&) { can_be_read = true; });
  if (!can_be_read) {
    return "the rates cannot be read";
  }
  const auto none = std::make_shared<rerate_rates>();
  none->date = trunk().rate_date;
  task_.reference.trunks.front().rates = none;
  has_rates_ = false;
  return "";
}

std::string price_world::load_calls(const std::string& session_id,
                                    std::vector<std::string>& lines) {
  const std::string condition = "session_id=" + literal(session_id);
  const std::string sql = rerate_calls_copy(trunk(), day_, condition, task_.row.include_q850 == 1);
  const pg_copy_end end = qvn_pg_copy_lines(connection(), sql.c_str(), kLabel,
                                            [&](const char* line) { lines.emplace_back(line); });
  if (end != pg_copy_end::whole) {
    return "the calls of " + day_.date + " cannot be read";
  }
  return lines.empty() ? why_no_call(condition) : "";
}

std::string price_world::why_no_call(const std::string& condition) {
  const std::string sql =
      qvn_format("select call_duration, ingress_id, egress_id from %s where %s limit 1",
                 day_.table.c_str(), condition.c_str());
  std::string reason = "no such session among the calls of " + day_.date;
  (void)qvn_pg_select(connection(), sql.c_str(), [&](const pg_row& row) {
    reason = qvn_format(
        "the session took %s s, from ingress trunk \"%s\" to egress trunk \"%s\"; "
        "calls of other trunks and calls of 0 s are not rated",
        row.text(0), row.text(1), row.text(2));
  });
  return reason;
}

std::vector<unloaded_rate> price_world::unloaded_rates(const call_facts& call) {
  std::string codes;
  for (std::size_t length = call.billed_number.size(); length > 0; --length) {
    codes += (codes.empty() ? "" : ",") + literal(call.billed_number.substr(0, length));
  }
  std::vector<unloaded_rate> rates;
  if (codes.empty()) {
    return rates;
  }
  const std::string sql = qvn_format(
      "select code, rate_id, rate, begins, ends, time_profile_id from (select *, row_number() over "
      "(partition by code, begins > %ld order by abs(begins - %ld)) as place from (select *, "
      "floor(extract(epoch from (effective_date))) as begins, extract(epoch from (end_date)) as "
      "ends from rate where rate_table_id = '%s' and code in (%s)) dated where ends <= %ld or "
      "floor(ends) < %ld or begins > %ld) placed where place <= 5",
      call.start_second, call.start_second, trunk().rate_table_id.c_str(), codes.c_str(),
      trunk().rates->date, task_.range.from, task_.range.to);
  (void)qvn_pg_select(connection(), sql.c_str(),
                      [&](const pg_row& row) { rates.push_back(read_unloaded(row)); });
  return rates;
}

pricing_terms price_world::terms() const {
  return rerate_terms(task_, trunk());
}

/// The text as SQL.
std::string price_world::literal(std::string_view text) const {
  const std::unique_ptr<char, decltype(&PQfreemem)> quoted(
      PQescapeLiteral(connection(), text.data(), text.size()), &PQfreemem);
  return quoted ? quoted.get() : "NULL";
}
