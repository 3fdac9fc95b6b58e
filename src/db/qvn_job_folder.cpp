#include "db/qvn_job_folder.h"

#include "base/qvn_shell.h"
#include "base/qvn_text.h"
#include "base/qvn_time.h"

std::string qvn_job_folder_make(const std::string& root, const qvn_job& job) {
  tm today{};
  if (!qvn_gmtime_r(&today)) {
    return {};
  }
  std::string folder =
      qvn_format("%s%04d%02d%02d/%s/%d/", root.c_str(), today.tm_year + 1900, today.tm_mon + 1,
                 today.tm_mday, job.label.c_str(), static_cast<int>(job.id));
  (void)qvn_shell(qvn_format("mkdir -p %s", folder.c_str()));
  return folder;
}

void qvn_job_folder_open(const std::string& folder) {
  if (!folder.empty()) {
    (void)qvn_shell(qvn_format("chmod -R 777 %s", folder.c_str()));
  }
}
