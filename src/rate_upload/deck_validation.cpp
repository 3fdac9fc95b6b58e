/// Accepted lines go to the listener, refused ones are reported in the log and kept in the reimport
/// file, byte for byte as they were read.

#include "rate_upload/deck_validation.h"

#include <array>
#include <fcntl.h>
#include <sys/stat.h>

#include "base/qvn_fd.h"
#include "base/qvn_text.h"
#include "core/qvn_core_ctrl.h"
#include "rate_upload/deck_cells.h"
#include "rate_upload/deck_header.h"
#include "rate_upload/deck_lines.h"

namespace {

void put(std::FILE* file, std::string_view text) {
  if (file) {
    (void)std::fwrite(text.data(), 1, text.size(), file);
  }
}

/// Closing the pid file would drop the daemon's lock on it.
bool may_be_deck(const struct stat& status) {
  return (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)) && !qvn_is_pid_file(status);
}

/// Reads one deck line by line.
class deck_reader {
 public:
  deck_reader(const rate_deck_request& request, rate_deck_listener& listener)
      : request_(request), listener_(listener), lines_(fileno(request.deck)) {}

  /// False when there is no valid header.
  bool read_header() {
    if (next()) {
      header_ = rate_header_parse(line_.text);
      listener_.began(header_, line_);
    }
    return header_.valid();
  }

  rate_deck_end read_lines() {
    while (next()) {
      if (!accept_or_refuse()) {
        return rate_deck_end::no_memory;
      }
    }
    // Half a deck must not pass for a whole one.
    return lines_.failed() ? rate_deck_end::unreadable : rate_deck_end::whole;
  }

 private:
  /// Reads and splits the next line that is not empty.
  bool next() {
    if (!lines_.next(line_.text)) {
      return false;
    }
    line_.number = lines_.number();
    line_.raw = lines_.raw();
    line_.cells = rate_line_split(line_.text, entries_);
    return true;
  }

  /// Treats one line. False when memory runs out.
  bool accept_or_refuse() {
    expect_next();
    import_values values;
    if (!check(values)) {
      refuse();
      return true;
    }
    switch (request_.codes.add(values.code)) {
      case seen_codes::verdict::fresh:
        break;
      case seen_codes::verdict::repeated:
        refusal_ = qvn_format("Line %d : repeating code, %.*s\n", line_.number,
                              static_cast<int>(values.code.size()), values.code.data());
        refuse();
        return true;
      case seen_codes::verdict::no_memory:
        return false;
    }
    take_from_code_deck(values);  // not earlier: a repeated code gets no note
    return listener_.accepted(values, line_);
  }

  /// Has the place of the next line's code fetched from memory while this line is treated: a guess,
  /// which changes nothing but the time.
  void expect_next() const {
    std::string_view rest = lines_.ahead();
    for (std::size_t column = 0; column < header_.code_column; ++column) {
      const std::size_t end = rest.find(kCellSeparator);
      if (end == std::string_view::npos) {
        return;
      }
      rest.remove_prefix(end + 1);
    }
    request_.codes.expect(rest.substr(0, rest.find(kCellSeparator)));
  }

  /// Checks the line for itself; false with its message in `refusal_`.
  bool check(import_values& values) {
    if (line_.cells.size() != header_.count) {
      refusal_ = qvn_format("Line %d : not matching rate header\n", line_.number);
      return false;
    }
    if (!rate_line_check(header_, line_.cells, line_.number, request_.dates, values, refusal_)) {
      return false;
    }
    if (values.code.empty() || !values.effective.text) {
      refusal_ = qvn_format("Line %d : missing rate or code or effective date\n", line_.number);
      return false;
    }
    return true;
  }

  /// Replaces code name and country by those of the code deck, if it knows the code; notes a code
  /// that is only covered by a shorter one.
  void take_from_code_deck(import_values& values) {
    const code_deck_node* const entry =
        request_.names ? request_.names->find(request_.code_deck_id, values.code.data()) : nullptr;
    if (!entry) {
      return;
    }
    // A note, not a refusal: the shorter code's names are better than none.
    if (values.code != qvn_or_empty(entry->code)) {
      listener_.noted();
      put(request_.log, qvn_format("Line %d : code not matching system code deck, %s\n",
                                   line_.number, values.code.data()));
    }
    values.code_name = qvn_or_empty(entry->name);
    values.country = qvn_or_empty(entry->country);
  }

  /// Reports the line and keeps it for a re-upload.
  void refuse() {
    listener_.refused(refusal_, line_);
    put(request_.log, refusal_);
    put(request_.reimport, line_.text);
    put(request_.reimport, "\n");
  }

  const rate_deck_request& request_;
  rate_deck_listener& listener_;
  rate_header header_;
  deck_lines lines_;
  std::array<std::string_view, kMaxCells> entries_;
  rate_deck_line line_{};
  std::string refusal_;  ///< the message of a refused line
};

}  // namespace

qvn_file rate_deck_open(const char* path) {
  const qvn_fd seen = qvn_fd_look_at(AT_FDCWD, path);
  struct stat status {};
  if (!seen.is_open() || fstat(seen.get(), &status) != 0 || !may_be_deck(status)) {
    return nullptr;
  }
  qvn_fd deck = qvn_fd_open_seen(seen, O_RDONLY);
  std::FILE* const file = deck.is_open() ? fdopen(deck.get(), "r") : nullptr;
  if (file) {
    (void)deck.release();
  }
  return qvn_file(file);
}

rate_deck_end rate_deck_validate(const rate_deck_request& request, rate_deck_listener& listener) {
  deck_reader reader(request, listener);
  return reader.read_header() ? reader.read_lines() : rate_deck_end::no_header;
}
