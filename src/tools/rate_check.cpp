#include "tools/rate_check.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <new>
#include <span>
#include <unistd.h>
#include <utility>
#include <vector>

#include "base/qvn_text.h"
#include "db/qvn_db_job.h"
#include "rate_upload/deck_cells.h"
#include "rate_upload/deck_validation.h"
#include "tools/code_deck_csv.h"
#include "tools/deck_diseases.h"
#include "tools/progress_bar.h"

namespace {

/// The deck of a CSV file that names none.
constexpr const char* kOnlyDeck = "1";

/// As it may be shown on a terminal: a deck comes from somebody else.
std::string shown(std::string_view text) {
  std::string copy(text);
  qvn_mask_controls(copy);
  return copy;
}

/// A stream whose lines go to standard output as they may be shown there; not before it is closed
/// is it done. Throws std::bad_alloc when memory runs out.
class shown_lines {
 public:
  shown_lines() : stream_(fopencookie(this, "w", {nullptr, take, nullptr, nullptr})) {
    if (!stream_) {
      throw std::bad_alloc();
    }
    (void)std::setvbuf(stream_.get(), nullptr, _IOLBF, 0);
  }

  [[nodiscard]] std::FILE* stream() const { return stream_.get(); }

 private:
  static ssize_t take(void* self, const char* bytes, std::size_t size) noexcept {
    for (const char byte : std::string_view(bytes, size)) {
      static_cast<shown_lines*>(self)->add(byte);
    }
    return static_cast<ssize_t>(size);
  }

  void add(char byte) {
    line_[length_++] = byte;
    if (byte == '\n' || length_ == line_.size()) {
      qvn_mask_controls(std::span(line_).first(length_), "\t\n");
      (void)std::fwrite(line_.data(), 1, length_, stdout);
      length_ = 0;
    }
  }

  std::array<char, 4096> line_;  ///< more than a message has
  std::size_t length_ = 0;
  qvn_file stream_;
};

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

/// Counts the lines and their refusals.
class counted_lines final : public rate_deck_listener {
 public:
  counted_lines(std::FILE* deck, deck_diseases& diseases) : bar_(deck), diseases_(diseases) {}

  void began(const rate_header& header, const rate_deck_line& line) override {
    diseases_.look_at_header(header, line);
  }

  bool accepted(const import_values& values, const rate_deck_line& line) override {
    diseases_.look_at_line(line);
    diseases_.look_at_values(values, line);
    ++accepted_;
    bar_.step();
    return true;
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

qvn_file create_reimport(const char* path, std::FILE* deck) {
  if (qvn_leads_to(path, deck)) {  // writing to it would destroy the deck that is being read
    (void)complain(path, kReimportNotCreated, "it is the rate file itself");
    return nullptr;
  }
  qvn_file reimport(std::fopen(path, "we"));
  if (!reimport) {
    (void)complain(path, kReimportNotCreated, std::strerror(errno));
  }
  return reimport;
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

/// Validates the deck and prints its messages.
rate_deck_end validate(const rate_check_options& options, std::FILE* deck, std::FILE* reimport,
                       const code_decks* code_deck, rate_deck_listener& lines) {
  rate_date_reader dates(options.format, std::time(nullptr));
  seen_codes codes;
  const shown_lines messages;
  return rate_deck_validate({deck, options.quiet ? nullptr : messages.stream(), reimport, dates,
                             codes, code_deck, options.code_deck_id},
                            lines);
}

tool_status check(const rate_check_options& options, const code_decks* code_deck) {
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
  deck_diseases diseases(options.names_are_utf8);
  counted_lines lines(deck.get(), diseases);
  const rate_deck_end end = validate(options, deck.get(), reimport.get(), code_deck, lines);
  return close_written(std::move(reimport), options.reimport_path,
                       report(options, end, lines, diseases));
}

}  // namespace

tool_status rate_check(const rate_check_options& options) {
  if (!options.codes_path) {
    return check(options, nullptr);
  }
  code_decks code_deck;
  const std::string default_id = options.code_deck_id.empty() ? kOnlyDeck : options.code_deck_id;
  return code_deck_csv_load(options.codes_path, default_id, code_deck) ? check(options, &code_deck)
                                                                       : kUnusable;
}
