#include "rerate/rerate_row.h"

#include <algorithm>

#include "base/qvn_text.h"

rerate_row rerate_row_read(const pg_row& row) {
  constexpr std::size_t kMostAddressCharacters = 15;
  return {.id = row.number<uint32_t>(0),
          .from_time = row.number<int64_t>(1),
          .to_time = row.number<int64_t>(2),
          .timezone = row.number<int32_t>(3),
          .update_lrn = row.number<uint8_t>(4),
          .update_us_jurisdiction = row.number<uint8_t>(5),
          .update_local_rate = row.number<uint8_t>(6),
          .ingress_trunks = row.text(7),
          .egress_trunks = row.text(8),
          .lrn_server_ip = std::string(row.text(9)).substr(0, kMostAddressCharacters),
          .lrn_server_port = row.number<int32_t>(10),
          .include_q850 = row.number<uint8_t>(11)};
}

std::string rerate_row_progress_update(uint32_t id, const char* text, rerate_status status) {
  return qvn_format("UPDATE rerate_cdr_task SET progress = '%s',status=%d where id = %d", text,
                    static_cast<int>(status), static_cast<int>(id));
}

std::string rerate_row_final_update(uint32_t id, const rerate_outcome& outcome,
                                    const rerate_figures& figures, int64_t start_time,
                                    int64_t end_time, const std::string& path) {
  const auto status = outcome.failed() ? rerate_status::failed : rerate_status::finished;
  const auto last_comma = static_cast<int>(figures.cdr_files.size()) - 1;
  // Pricing and loading are one step: the seconds of the former are 0.
  return qvn_format(
      "update rerate_cdr_task set err_code=%d,progress='%s',status=%d,load_cdr_elapsed_sec=%ld,"
      "load_rate_elapsed_sec=%ld,rerate_elapsed_sec=0,start_time=%ld,end_time=%ld,cdr_file='%.*s',"
      "cdr_file_path='%s' where id=%d",
      static_cast<int>(outcome.error), outcome.text, static_cast<int>(status),
      figures.cdr_load_seconds, figures.rate_load_seconds, start_time, end_time,
      std::max(last_comma, 0), figures.cdr_files.c_str(), path.c_str(), static_cast<int>(id));
}
