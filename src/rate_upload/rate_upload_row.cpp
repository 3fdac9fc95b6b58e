#include "rate_upload/rate_upload_row.h"

#include <cstring>

#include "base/qvn_text.h"

namespace {

/// Without trailing blanks and without one trailing slash, but "/" stays.
std::string trimmed_path(const char* column) {
  std::string path = column;
  qvn_trim_suffix_blank(path.data());
  path.resize(std::strlen(path.c_str()));
  if (path.size() >= 2 && path.back() == '/') {
    path.pop_back();
  }
  return path;
}

}  // namespace

void rate_upload_outcome::fail(const char* progress_text) {
  if (!failed_) {
    // Cut at a whole character: the database refuses half a one.
    failed_ = true;
    text_[qvn_cut(progress_text, sizeof text_ - 1).copy(text_, sizeof text_)] = '\0';
  }
}

rate_upload_row rate_upload_row_read(const pg_row& row) {
  return {.id = row.number<uint32_t>(0),
          .upload_file_path = trimmed_path(row.text(1)),
          .upload_format_file = row.text(2),
          .rate_table_id = row.text(3),
          .rate_table_code_deck_id = row.text(4),
          .rate_date_format = rate_date_format_index(row.text(5)),
          .rate_end_date = row.text(6),
          .reduplicate_rate_action = row.number<int32_t>(7),
          .code_deck_flag = row.number<uint8_t>(8),
          .use_ocn_lata_code = row.number<uint8_t>(9)};
}

std::string rate_upload_row_progress_update(uint32_t id, const char* text, upload_status status) {
  return qvn_format("UPDATE rate_upload_task SET progress = '%s',status=%d where id = %d", text,
                    static_cast<int>(status), static_cast<int>(id));
}

std::string rate_upload_row_final_update(uint32_t id, const rate_upload_outcome& outcome,
                                         const rate_upload_figures& figures, int64_t start_time,
                                         int64_t end_time, const std::string& result_file_path) {
  const upload_status status = outcome.failed() ? upload_status::failed : upload_status::finished;
  const std::string progress =
      outcome.failed()
          ? outcome.text()
          : qvn_format("Insert: %u, Delete: %u, Update: %u, Error: %u", figures.inserted,
                       figures.deleted, figures.updated, figures.refused);
  const std::string detail =
      qvn_format("Download: %ld, Process: %ld, Delete: %ld, Update: %ld, Copy: %ld",
                 figures.download_seconds, figures.process_seconds, figures.deletion_seconds,
                 figures.update_seconds, figures.copy_seconds);
  return qvn_format(
      "update rate_upload_task set progress='%s',status=%d,start_time=%ld,end_time=%ld,"
      "expense_detail='%s',result_file_path='%s' where id=%d",
      progress.c_str(), static_cast<int>(status), start_time, end_time, detail.c_str(),
      result_file_path.c_str(), static_cast<int>(id));
}
