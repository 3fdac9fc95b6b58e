#include "rate_upload/rate_statements.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string_view>

#include "base/qvn_text.h"
#include "base/qvn_time.h"

namespace {

/// Whether statements with this end date, which the portal wrote, may stand beside others.
bool may_be_joined(const std::string& end_date) {
  return end_date.find_first_of("'\\;") == std::string::npos &&
         end_date.find("--") == std::string::npos && end_date.find("/*") == std::string::npos;
}

/// The number of an id of plain digits; 0 for any other, for 0, and for more than the database's
/// widest integer.
int64_t number_of(const char* rate_id) {
  const std::string_view digits = qvn_or_empty(rate_id);
  int64_t number = 0;
  const char* const end = digits.data() + digits.size();
  const auto result = std::from_chars(digits.data(), end, number);
  return result.ec == std::errc{} && result.ptr == end && number > 0 ? number : 0;
}

/// Cuts the statements before the first whose rate an earlier one has.
void cut_at_repeated(std::vector<rate_statement>& statements) {
  struct place {
    int64_t number;
    std::size_t index;
  };
  std::vector<place> places;
  places.reserve(statements.size());
  for (const rate_statement& statement : statements) {
    places.push_back({number_of(statement.rate_id), places.size()});
  }
  std::ranges::stable_sort(places, {}, &place::number);
  std::size_t kept = statements.size();
  for (std::size_t i = 1; i < places.size(); ++i) {
    if (places[i].number == places[i - 1].number) {
      kept = std::min(kept, places[i].index);
    }
  }
  statements.resize(kept);
}

}  // namespace

rate_statement_writer::rate_statement_writer(const std::string& jobs_end_date)
    : jobs_end_date_(&jobs_end_date), jobs_end_date_joins_(may_be_joined(jobs_end_date)) {}

void rate_statement_writer::append_head(std::string& text, int64_t end) const {
  if (!jobs_end_date_) {
    text += "delete from rate where rate_id ";
    return;
  }
  text += "update rate set end_date = '";
  text += end == kJobsEndDate ? *jobs_end_date_ : qvn_utc_timestamp(end);
  text += "' where rate_id ";
}

std::string rate_statement_writer::text(const rate_statement& statement) const {
  std::string text;
  append_head(text, statement.end);
  text += "= ";
  text += qvn_or_empty(statement.rate_id);
  return text;
}

std::vector<rate_statement> rate_statement_writer::joinable(const statement_list& list,
                                                            std::size_t most) const {
  std::vector<rate_statement> statements;
  list.look_through([&](const rate_statement& statement) {
    const bool joins = number_of(statement.rate_id) != 0 &&
                       (statement.end != kJobsEndDate || jobs_end_date_joins_);
    if (joins || statements.empty()) {
      statements.push_back(statement);
    }
    return joins && statements.size() < most;
  });
  cut_at_repeated(statements);
  return statements;
}

std::string rate_statement_writer::joined(std::vector<rate_statement> statements) const {
  constexpr std::size_t kIdSize = 10;  // of a usual one, with its comma
  std::ranges::stable_sort(statements, {}, &rate_statement::end);
  std::string text;
  text.reserve(statements.size() * kIdSize);
  for (std::size_t i = 0; i < statements.size(); ++i) {
    const bool first = i == 0 || statements[i].end != statements[i - 1].end;
    const bool last = i + 1 == statements.size() || statements[i].end != statements[i + 1].end;
    if (first) {
      append_head(text, statements[i].end);
      text += "in (";
    }
    text += statements[i].rate_id;
    text += last ? ");\n" : ",";
  }
  return text;
}
