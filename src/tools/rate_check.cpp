#include "tools/rate_check.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "rate_upload/rate_deck.h"
#include "rate_upload/rate_upload_task.h"
#include "tools/code_deck_csv.h"
#include "tools/progress_bar.h"

namespace {

/// The deck of a CSV file that names none.
constexpr const char* kOnlyDeck = "1";

bool reads_standard_input(const rate_check_options& options) {
  return std::strcmp(options.deck_path, "-") == 0;
}

const char* shown_name(const rate_check_options& options) {
  return reads_standard_input(options) ? "standard input" : options.deck_path;
}

tool_status complain(const char* file, const char* what, const char* why) {
  (void)std::fprintf(stderr, "%s: %s%s%s\n", file, what, *why ? ": " : "", why);
  return kUnusable;
}

/// Counts the lines and their refusals.
class counted_lines final : public rate_deck_listener {
 public:
  explicit counted_lines(std::FILE* deck) : bar_(deck) {}

  bool accepted(const import_values& /*values*/) override {
    ++accepted_;
    bar_.step();
    return true;
  }

  void refused(std::string_view message) override {
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

  void print_summary(const char* name) {
    bar_.hide();
    std::printf("%s: %u lines, %u accepted, %u refused", name, accepted_ + refused_, accepted_,
                refused_);
    std::printf(noted_ > 0 ? ", %u not matching the code deck\n" : "\n", noted_);
    std::vector<std::pair<std::string, uint32_t>> sorted(reasons_.begin(), reasons_.end());
    std::ranges::stable_sort(sorted,
                             [](const auto& a, const auto& b) { return a.second > b.second; });
    for (const auto& [reason, count] : sorted) {
      std::printf("%8u  %s\n", count, reason.c_str());
    }
  }

 private:
  progress_bar bar_;
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

/// Whether writing to the path would destroy the deck that is being read.
bool is_same_file(const char* path, std::FILE* deck) {
  struct stat ours {};
  struct stat theirs {};
  return stat(path, &ours) == 0 && fstat(fileno(deck), &theirs) == 0 &&
         ours.st_dev == theirs.st_dev && ours.st_ino == theirs.st_ino;
}

qvn_file create_reimport(const char* path, std::FILE* deck) {
  if (is_same_file(path, deck)) {
    (void)complain(path, kReimportNotCreated, "it is the rate file itself");
    return nullptr;
  }
  qvn_file reimport(std::fopen(path, "we"));
  if (!reimport) {
    (void)complain(path, kReimportNotCreated, std::strerror(errno));
  }
  return reimport;
}

tool_status report(const rate_check_options& options, rate_deck_end end, counted_lines& lines) {
  switch (end) {
    case rate_deck_end::no_header:
      return complain(shown_name(options), kDeckHeaderInvalid, "");
    case rate_deck_end::unreadable:
      return complain(shown_name(options), kDeckNotOpened, "it cannot be read to its end");
    case rate_deck_end::no_memory:
      return complain(shown_name(options), kMemoryShortage, "");
    case rate_deck_end::whole:
      break;
  }
  lines.print_summary(shown_name(options));
  return lines.all_accepted() ? kNothingToSay : kFindings;
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

tool_status check(const rate_check_options& options, const rate_code_deck* code_deck) {
  const qvn_file deck = open_deck(options);
  if (!deck) {
    return kUnusable;
  }
  qvn_file reimport;
  if (options.reimport_path) {
    reimport = create_reimport(options.reimport_path, deck.get());
    if (!reimport) {
      return kUnusable;
    }
  }
  rate_date_reader dates(options.format, std::time(nullptr));
  seen_codes codes;
  counted_lines lines(deck.get());
  const rate_deck_request request{deck.get(),
                                  options.quiet ? nullptr : stdout,
                                  reimport.get(),
                                  dates,
                                  codes,
                                  code_deck,
                                  options.code_deck_id};
  const rate_deck_end end = rate_deck_validate(request, lines);
  return close_written(std::move(reimport), options.reimport_path, report(options, end, lines));
}

}  // namespace

tool_status rate_check(const rate_check_options& options) {
  if (!options.codes_path) {
    return check(options, nullptr);
  }
  rate_code_deck code_deck;
  const std::string default_id = options.code_deck_id.empty() ? kOnlyDeck : options.code_deck_id;
  return code_deck_csv_load(options.codes_path, default_id, code_deck) ? check(options, &code_deck)
                                                                       : kUnusable;
}
