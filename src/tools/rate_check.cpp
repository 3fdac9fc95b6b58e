#include "tools/rate_check.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <unistd.h>
#include <utility>
#include <vector>

#include "rate_upload/deck_cells.h"
#include "rate_upload/deck_validation.h"
#include "rate_upload/rate_upload_task.h"
#include "tools/code_deck_csv.h"
#include "tools/deck_diseases.h"
#include "tools/progress_bar.h"
#include "tools/rate_against.h"
#include "tools/shown_lines.h"
#include "tools/tool_core.h"

namespace {

/// The deck of a CSV file that names none.
constexpr const char* kOnlyDeck = "1";

bool reads_standard_input(const rate_check_options& options) {
  return std::strcmp(options.deck_path, "-") == 0;
}

const char* name_of_deck(const rate_check_options& options) {
  return reads_standard_input(options) ? "standard input" : options.deck_path;
}

tool_status complain(const char* file, const char* what, const char* why) {
  (void)std::fprintf(stderr, "%s: %s%s%s\n", shown(file).c_str(), what, *why ? ": " : "", why);
  return kUnusable;
}

/// Counts the lines and their refusals, and keeps the accepted ones where they are wanted.
class counted_lines final : public rate_deck_listener {
 public:
  counted_lines(std::FILE* deck, deck_diseases& diseases, import_list* kept)
      : bar_(deck), diseases_(diseases), kept_(kept) {}

  void began(const rate_header& header, const rate_deck_line& line) override {
    diseases_.look_at_header(header, line);
  }

  bool accepted(const import_values& values, const rate_deck_line& line) override {
    diseases_.look_at_line(line);
    diseases_.look_at_values(values, line);
    ++accepted_;
    bar_.step();
    return !kept_ || kept_->push(values);
  }

  void refused(std::string_view message, const rate_deck_line& line) override {
    diseases_.look_at_line(line);
    bar_.hide();
    bar_.step();
    ++refused_;
    const std::string_view reason = rate_refusal_reason(message);
    const auto known = reasons_.find(reason);
    ++(known != reasons_.end() ? known->second : reasons_[std::string(reason)]);
  }

  void noted() override {
    bar_.hide();
    ++noted_;
  }

  [[nodiscard]] bool all_accepted() const { return refused_ == 0; }
  [[nodiscard]] bool none_accepted() const { return accepted_ == 0; }

  void print_summary(const char* name) {
    bar_.hide();
    std::printf("%s: %u lines, %u accepted, %u refused", shown(name).c_str(), accepted_ + refused_,
                accepted_, refused_);
    std::printf(noted_ > 0 ? ", %u not matching the code deck\n" : "\n", noted_);
    std::vector<std::pair<std::string, uint32_t>> sorted(reasons_.begin(), reasons_.end());
    std::ranges::stable_sort(sorted,
                             [](const auto& a, const auto& b) { return a.second > b.second; });
    for (const auto& [reason, count] : sorted) {
      std::printf("%8u  %s\n", count, shown(reason).c_str());
    }
  }

 private:
  progress_bar bar_;
  deck_diseases& diseases_;
  import_list* kept_;
  uint32_t accepted_ = 0;
  uint32_t refused_ = 0;
  uint32_t noted_ = 0;
  std::map<std::string, uint32_t, std::less<>> reasons_;
};

qvn_file open_deck(const rate_check_options& options) {
  if (reads_standard_input(options)) {
    return qvn_file(fdopen(STDIN_FILENO, "r"));
  }
  errno = 0;
  qvn_file deck = rate_deck_open(options.deck_path);
  if (!deck) {
    (void)complain(options.deck_path, kDeckNotOpened,
                   errno != 0 ? std::strerror(errno) : "not a plain file; use - for a pipe");
  }
  return deck;
}

/// Creates a file beside the deck; false, with a line, when it cannot. Without a path there is
/// none.
bool create_file(const char* path, const char* failure, std::FILE* deck, qvn_file& file) {
  if (path && qvn_leads_to(path, deck)) {  // writing to it would destroy the deck that is read
    (void)complain(path, failure, "it is the rate file itself");
    return false;
  }
  file.reset(path ? std::fopen(path, "we") : nullptr);
  if (path && !file) {
    (void)complain(path, failure, std::strerror(errno));
  }
  return !path || file;
}

void print_columns(const char* what, const std::string& names) {
  if (!names.empty()) {
    std::printf("%s: %s\n", what, shown(names).c_str());
  }
}

/// Prints the columns and what is wrong with the deck as a whole.
tool_status print_diseases(const char* name, const deck_diseases& diseases) {
  print_columns("columns", diseases.known_columns());
  print_columns("ignored columns", diseases.ignored_columns());
  tool_status status = kNothingToSay;
  for (const deck_finding& finding : diseases.findings()) {
    std::printf("%s:%d: %s", shown(name).c_str(), finding.line, finding.what.c_str());
    if (finding.count > 1) {
      std::printf(" (%u lines, this is the first)", finding.count);
    }
    std::printf("\n    cure: %s\n", finding.cure.c_str());
    status = std::max(status, finding.status);
  }
  return status;
}

/// How the reading of the deck ended.
tool_status report_end(const rate_check_options& options, rate_deck_end end, counted_lines& lines) {
  switch (end) {
    case rate_deck_end::no_header:
      return complain(name_of_deck(options), kDeckHeaderInvalid, "");
    case rate_deck_end::unreadable:
      return complain(name_of_deck(options), kDeckNotOpened, "it cannot be read to its end");
    case rate_deck_end::no_memory:
      return complain(name_of_deck(options), kMemoryShortage, "");
    case rate_deck_end::whole:
      break;
  }
  lines.print_summary(name_of_deck(options));
  if (lines.none_accepted()) {
    return complain(name_of_deck(options), "nothing would be imported", "");
  }
  return lines.all_accepted() ? kNothingToSay : kFindings;
}

tool_status report(const rate_check_options& options, rate_deck_end end, counted_lines& lines,
                   const deck_diseases& diseases) {
  const tool_status status = report_end(options, end, lines);
  return std::max(status, print_diseases(name_of_deck(options), diseases));
}

/// `findings`, or, with a line, the failure to write what they are based on.
tool_status close_written(qvn_file file, const char* path, tool_status findings) {
  if (!file) {
    return findings;
  }
  const bool failed = std::ferror(file.get()) != 0;
  if (std::fclose(file.release()) != 0 || failed) {
    return complain(path, "writing failed", "");
  }
  return findings;
}

/// Validates the deck as the job would, and prints its messages.
rate_deck_end validate(const rate_check_options& options, std::FILE* deck, std::FILE* reimport,
                       rate_upload_data& data, rate_deck_listener& lines) {
  data.codes = std::make_unique<seen_codes>();
  data.dates.emplace(options.job.rate_date_format, std::time(nullptr));
  const bool has_names = options.codes_path || options.job.code_deck_flag == 1;
  const shown_lines messages;
  return rate_deck_validate(
      {deck, options.quiet ? nullptr : messages.stream(), reimport, *data.dates, *data.codes,
       has_names ? &data.names : nullptr, options.job.rate_table_code_deck_id},
      lines);
}

/// Checks the deck of a job whose data hold what was loaded; `against`, where there is one, then
/// compares it with that.
tool_status check(const rate_check_options& options, rate_upload_data& data,
                  rate_against* against) {
  const qvn_file deck = open_deck(options);
  qvn_file reimport;
  qvn_file changes;
  if (!deck || !create_file(options.reimport_path, kReimportNotCreated, deck.get(), reimport) ||
      !create_file(options.changes_path, "cannot be written", deck.get(), changes)) {
    return kUnusable;
  }
  deck_diseases diseases(options.names_are_utf8);
  counted_lines lines(deck.get(), diseases, against ? &data.imports : nullptr);
  const rate_deck_end end = validate(options, deck.get(), reimport.get(), data, lines);
  tool_status status = report(options, end, lines, diseases);
  if (against && end == rate_deck_end::whole) {
    against->report(changes.get());
  }
  status = close_written(std::move(reimport), options.reimport_path, status);
  return close_written(std::move(changes), options.changes_path, status);
}

tool_status check_against(const rate_check_options& options, rate_upload_task& job) {
  const tool_core core(options.conf_folder);
  rate_against against(job, options.section);
  return against.load() ? check(options, *job.data, &against) : kUnusable;
}

}  // namespace

tool_status rate_check(const rate_check_options& options) {
  rate_upload_task job(options.job);
  const std::string& id = options.job.rate_table_code_deck_id;
  if (options.codes_path &&
      !code_deck_csv_load(options.codes_path, id.empty() ? kOnlyDeck : id, job.data->names)) {
    return kUnusable;
  }
  return options.section.empty() ? check(options, *job.data, nullptr) : check_against(options, job);
}
