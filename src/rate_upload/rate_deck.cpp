/// Accepted lines go to the listener, refused ones are reported in the log and kept in the reimport
/// file, byte for byte as they were read.

#include "rate_upload/rate_deck.h"

#include <array>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

#include "base/qvn_fd.h"
#include "base/qvn_text.h"
#include "core/qvn_process.h"

namespace {

constexpr int kLineSize = 1024;  // a longer line is read in pieces
constexpr std::size_t kFileBufferSize = std::size_t{256} * 1024;

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
      : request_(request), listener_(listener) {}

  /// False when there is no valid header.
  bool read_header();

  rate_deck_end read_lines();

 private:
  bool next_line();
  bool accept_or_refuse();
  bool check(std::span<char*> cells, import_values& values);
  void take_from_code_deck(import_values& values);
  void refuse();

  const rate_deck_request& request_;
  rate_deck_listener& listener_;
  rate_header header_;
  int line_number_ = 0;
  char line_[kLineSize] = {};   ///< the line as read, without its end
  char cells_[kLineSize] = {};  ///< the line cut into cells
  std::string refusal_;         ///< the message of a refused line
};

/// Reads up to the next line that is not empty; false at the end.
bool deck_reader::next_line() {
  while (std::fgets(line_, kLineSize, request_.deck)) {
    ++line_number_;
    const std::size_t length = std::strcspn(line_, "\r\n");
    line_[length] = '\0';
    if (length > 0) {
      std::memcpy(cells_, line_, length + 1);
      return true;
    }
  }
  return false;
}

bool deck_reader::read_header() {
  if (next_line()) {
    header_ = rate_header_parse(cells_);
  }
  return header_.valid();
}

rate_deck_end deck_reader::read_lines() {
  while (next_line()) {
    if (!accept_or_refuse()) {
      return rate_deck_end::no_memory;
    }
  }
  // Half a deck must not pass for a whole one.
  return std::ferror(request_.deck) != 0 ? rate_deck_end::unreadable : rate_deck_end::whole;
}

/// Treats one line. False when memory runs out.
bool deck_reader::accept_or_refuse() {
  std::array<char*, kMaxCells> entries;
  const std::span<char*> cells = rate_line_split(cells_, entries);
  import_values values;
  if (!check(cells, values)) {
    refuse();
    return true;
  }
  switch (request_.codes.add(values.code.data(), line_number_)) {
    case seen_codes::verdict::fresh:
      break;
    case seen_codes::verdict::repeated:
      refusal_ = qvn_format("Line %d : repeating code, %s\n", line_number_, values.code.data());
      refuse();
      return true;
    case seen_codes::verdict::no_memory:
      return false;
  }
  take_from_code_deck(values);
  return listener_.accepted(values);
}

/// Checks the line for itself; false with its message in `refusal_`.
bool deck_reader::check(std::span<char*> cells, import_values& values) {
  if (cells.size() != header_.count) {
    refusal_ = qvn_format("Line %d : not matching rate header\n", line_number_);
    return false;
  }
  if (!rate_line_check(header_, cells, line_number_, request_.dates, values, refusal_)) {
    return false;
  }
  if (values.code.empty() || !values.effective.text) {
    refusal_ = qvn_format("Line %d : missing rate or code or effective date\n", line_number_);
    return false;
  }
  return true;
}

/// Replaces code name and country by those of the code deck, if it knows the code; notes a code
/// that is only covered by a shorter one.
void deck_reader::take_from_code_deck(import_values& values) {
  const code_deck_node* const entry =
      request_.code_deck ? request_.code_deck->find(request_.code_deck_id, values.code.data())
                         : nullptr;
  if (!entry) {
    return;
  }
  if (values.code != qvn_or_empty(entry->code)) {
    listener_.noted();
    put(request_.log, qvn_format("Line %d : code not matching system code deck, %s\n", line_number_,
                                 values.code.data()));
  }
  values.code_name = qvn_or_empty(entry->name);
  values.country = qvn_or_empty(entry->country);
}

/// Reports the line and keeps it for a re-upload.
void deck_reader::refuse() {
  listener_.refused(refusal_);
  put(request_.log, refusal_);
  put(request_.reimport, line_);
  put(request_.reimport, "\n");
}

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
  const auto buffer = std::make_unique_for_overwrite<char[]>(kFileBufferSize);
  (void)std::setvbuf(request.deck, buffer.get(), _IOFBF, kFileBufferSize);
  deck_reader reader(request, listener);
  return reader.read_header() ? reader.read_lines() : rate_deck_end::no_header;
}
