/// The texts of queued statements, and which of them may share one. Pure.
#pragma once

#include <string>
#include <vector>

#include "rate_upload/statement_list.h"

/// One kind of statement of a job.
class rate_statement_writer {
 public:
  /// Deletions.
  rate_statement_writer() = default;
  /// End dates; `jobs_end_date` is the text that stands for kJobsEndDate and must live as long.
  explicit rate_statement_writer(const std::string& jobs_end_date);

  /// The text of one statement.
  [[nodiscard]] std::string text(const rate_statement& statement) const;

  /// The statements at the top of the list that may be sent in one text, at most `most`; one, when
  /// the first has to go alone. They stay on the list, which must not be empty. No rate is among
  /// them twice, so that within them the order does not matter.
  ///
  /// Alone go an id that is not plain digits and a text of the job's row that could end its
  /// statement early or swallow its neighbour.
  [[nodiscard]] std::vector<rate_statement> joinable(const statement_list& list,
                                                     std::size_t most) const;

  /// One text that does what they do: a statement for each end date, over the list of its ids.
  [[nodiscard]] std::string joined(std::vector<rate_statement> statements) const;

 private:
  void append_head(std::string& text, int64_t end) const;

  const std::string* jobs_end_date_ = nullptr;  ///< null: deletions
  bool jobs_end_date_joins_ = false;
};
