/// Rating one trunk's calls of a day into its CDR file.

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/qvn_file.h"
#include "base/qvn_log.h"
#include "base/qvn_text.h"
#include "rerate/rerate_task.h"

namespace {

constexpr const char* kLogSource = "qvn_rerate";

/// Lines gathered before they are written: few large writes.
constexpr std::size_t kWriteSize = std::size_t{256} << 10;

/// The trees and switches of the task and the settings of the trunk, as they stand for all calls.
pricing_terms terms_of(const rerate_task& task, const rerate_trunk& trunk) {
  const rate_table_settings& table = *trunk.rate_table;
  pricing_terms terms{
      .time_profiles = task.time_profiles,
      .jurisdiction = {.prefix = table.jurisdiction_prefix.c_str(),
                       .prefix_min_length = table.prefix_min_length,
                       .prefix_max_length = table.prefix_max_length,
                       .noprefix_min_length = table.noprefix_min_length,
                       .noprefix_max_length = table.noprefix_max_length},
      .local_rates = task.update_local_rate == 1,
      .rate_decimal = trunk.rate_decimal,
      .rate_rounding = trunk.rate_rounding,
  };
  if (const auto* const rates = rp_hash_match_all(&trunk.rate_tree, trunk.rate_table_id.c_str())) {
    terms.codes = rates->sub;
  }
  if (task.update_us_jurisdiction == 1 && !table.jurisdiction_country_id.empty()) {
    const auto* const country =
        rp_hash_match_all(&task.jurisdictions, table.jurisdiction_country_id.c_str());
    terms.jurisdictions = country ? country->sub : nullptr;
  }
  return terms;
}

/// A caller's texts do not write lines of the log.
void log_not_matched(const rerate_task& task, cdr_columns columns) {
  char text[2048];  // no line of the log is longer
  (void)std::snprintf(text, sizeof text,
                      "Rerate task %d session_id %s ani %s bill_dnis %s not match rate",
                      static_cast<int>(task.id), columns[kSessionId].data(),
                      columns[kTranslationAni].data(), cdr_rater::billed_number(columns).data());
  qvn_mask_controls({text, std::strlen(text)});
  QVN_LOG(kLogNotice, "%s\n", text);
}

/// Rates and writes all calls; stops at the first write that fails. Throws std::bad_alloc when
/// memory runs out.
bool write_calls(const rerate_task& task, call_side side, rerate_trunk& trunk, std::FILE* file) {
  cdr_rater rater(side, terms_of(task, trunk), trunk.loaded_rate_date);
  std::array<std::string_view, kCdrColumnsWithQ850> fields;
  const cdr_columns columns(fields.data(), task.column_count());
  std::string buffer;
  const auto write = [&] {
    const bool whole = std::fwrite(buffer.data(), 1, buffer.size(), file) == buffer.size();
    buffer.clear();
    return whole;
  };
  for (char* line = trunk.cdrs.first(); line; line = trunk.cdrs.first()) {
    fields.fill("");
    pg_row_csv_parse(line, columns);
    if (rater.rate(columns) == cdr_rater::outcome::not_matched) {
      log_not_matched(task, columns);
    }
    cdr_line_append(buffer, columns);
    trunk.cdrs.drop_first();
    if (buffer.size() >= kWriteSize && !write()) {
      return false;
    }
  }
  return write();
}

bool write_file(rerate_task& task, call_side side, rerate_trunk& trunk, const std::string& date,
                const std::string& path) {
  const qvn_file file(std::fopen(path.c_str(), "a+e"));
  if (!file) {
    QVN_LOG(kLogWarning, "Create a cdr file %s failed, error:%d(%s)\n", path.c_str(), errno,
            std::strerror(errno));
    return false;
  }
  rerate_task_progress_update(
      task, qvn_format("Rerate %s %s CDRs", trunk.alias.c_str(), date.c_str()).c_str(),
      rerate_status::rating);
  QVN_LOG(kLogDebug, "Rerate task %d rerate %s %s %s CDRs\n", static_cast<int>(task.id),
          side_name(side), trunk.alias.c_str(), date.c_str());
  if (!write_calls(task, side, trunk, file.get()) || std::fflush(file.get()) != 0) {
    QVN_LOG(kLogWarning, "Write cdr file %s failed, error:%d(%s)\n", path.c_str(), errno,
            std::strerror(errno));
    return false;
  }
  return true;
}

/// Names the file in the job row; false, logged, when the row's list is full.
bool list_file(rerate_task& task, call_side side, const rerate_trunk& trunk,
               const std::string& date, const std::string& name) {
  constexpr std::size_t kFullAt = 2019;  // characters
  const int id = static_cast<int>(task.id);
  if (task.cdr_files.size() >= kFullAt) {
    QVN_LOG(kLogWarning, "Rerate task %d number of CDR file exceeds limits\n", id);
    return false;
  }
  task.cdr_files += name + ",";
  QVN_LOG(kLogDebug, "Rerate task %d rerate %s %s %s CDRs done\n", id, side_name(side),
          trunk.alias.c_str(), date.c_str());
  return true;
}

}  // namespace

int32_t execute_rerating(rerate_task& task, call_side side, rerate_trunk& trunk,
                         const std::string& date) {
  const std::string name =
      qvn_format("%d-%s-%s.cdr", static_cast<int>(task.id), trunk.id.c_str(), date.c_str());
  const bool written = write_file(task, side, trunk, date, task.output_directory + name);
  trunk.cdrs.clear();
  return written && list_file(task, side, trunk, date, name) ? 0 : -1;
}
