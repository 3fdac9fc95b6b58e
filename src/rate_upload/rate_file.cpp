/// The rate deck from its first line to its last: accepted lines become import records, refused
/// ones are reported in the import log and kept in the reimport file, byte for byte as they were
/// read.

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

#include "base/qvn_file.h"
#include "base/qvn_log.h"
#include "base/qvn_text.h"
#include "rate_upload/rate_upload_task.h"

namespace {

constexpr const char* kLogSource = "qvn_rate_upload";

constexpr int kLineSize = 1024;  // a longer line is read in pieces
constexpr std::size_t kFileBufferSize = std::size_t{256} * 1024;

/// Opens the deck for reading. Anything but a file is refused where reading it could block or never
/// end: a pipe, a terminal, a device. A directory opens and then holds no line.
qvn_file open_deck(const char* path) {
  const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) {
    return nullptr;
  }
  struct stat status {};
  if (fstat(descriptor, &status) == 0 && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode))) {
    if (std::FILE* const file = fdopen(descriptor, "r")) {
      return qvn_file(file);
    }
  }
  (void)close(descriptor);
  return nullptr;
}

/// The files of one import.
struct import_files {
  qvn_file deck;
  qvn_file log;
  qvn_file reimport;
};

/// Opens the three files in the order in which their failures are reported; false, logged, at the
/// first.
bool open_files(rate_upload_task& task, import_files& files) {
  const std::string deck_path = task.upload_file_path + "/" + task.upload_format_file;
  const std::string log_path = task.result_path + "rate_import.log";
  const std::string reimport_path = task.result_path + "rate_reimport.csv";
  files.deck = open_deck(deck_path.c_str());
  if (!files.deck) {
    QVN_LOG(kLogWarning, "%s rate upload task %u open %s file failed\n", task.label.c_str(),
            task.id, deck_path.c_str());
    task.fail("Open rate file failed");
    return false;
  }
  files.log.reset(std::fopen(log_path.c_str(), "we"));
  if (!files.log) {
    QVN_LOG(kLogWarning, "%s rate upload task %u open import log file failed\n", task.label.c_str(),
            task.id);
    task.fail("Create rate import log file failed");
    return false;
  }
  files.reimport.reset(std::fopen(reimport_path.c_str(), "we"));
  if (!files.reimport) {
    QVN_LOG(kLogWarning, "%s rate upload task %u open reimport rate file failed\n",
            task.label.c_str(), task.id);
    task.fail("Create reimport rate file failed");
    return false;
  }
  return true;
}

/// Closes a result file; a full disk is told to the operator, as refused lines are missing then.
void close_result_file(const rate_upload_task& task, qvn_file file, const char* name) {
  const bool failed = std::ferror(file.get()) != 0;
  errno = 0;
  if (std::fclose(file.release()) != 0 || failed) {
    QVN_LOG(kLogWarning, "%s rate upload task %u writing %s failed, %s\n", task.label.c_str(),
            task.id, name, std::strerror(errno != 0 ? errno : EIO));
  }
}

/// Reads one deck line by line.
class deck_reader {
 public:
  deck_reader(rate_upload_task& task, const import_files& files) : task_(task), files_(files) {}

  /// False, with the task failed, when there is no valid header.
  bool read_header();

  /// False, with the task failed, when memory runs out or the deck cannot be read to its end.
  bool read_lines();

 private:
  bool next_line();
  bool accept_or_refuse();
  void take_from_code_deck(import_values& values);
  const code_deck_node* find_in_code_deck(const char* code) const;
  void refuse();
  bool no_memory();

  rate_upload_task& task_;
  const import_files& files_;
  rate_header header_;
  int line_number_ = 0;
  char line_[kLineSize] = {};   ///< the line as read, without its end
  char cells_[kLineSize] = {};  ///< the line cut into cells
  std::string refusal_;         ///< the message of a refused line
};

/// Reads up to the next line that is not empty; false at the end.
bool deck_reader::next_line() {
  while (std::fgets(line_, kLineSize, files_.deck.get())) {
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
  if (!header_.valid()) {
    QVN_LOG(kLogWarning, "%s rate upload task %u import header invalid\n", task_.label.c_str(),
            task_.id);
    task_.fail("Import header invalid");
    return false;
  }
  return true;
}

bool deck_reader::read_lines() {
  while (next_line()) {
    if (!accept_or_refuse()) {
      return no_memory();
    }
  }
  if (std::ferror(files_.deck.get()) != 0) {
    // Half a deck must not pass for a whole one.
    QVN_LOG(kLogWarning, "%s rate upload task %u open %s file failed\n", task_.label.c_str(),
            task_.id, task_.upload_format_file.c_str());
    task_.fail("Open rate file failed");
    return false;
  }
  return true;
}

/// Treats one line. False when memory runs out.
bool deck_reader::accept_or_refuse() {
  std::array<char*, kMaxCells> entries;
  const std::span<char*> cells = rate_line_split(cells_, entries);
  import_values values;
  if (cells.size() != header_.count) {
    refusal_ = qvn_format("Line %d : not matching rate header\n", line_number_);
    refuse();
    return true;
  }
  if (!rate_line_check(header_, cells, line_number_, *task_.dates, values, refusal_)) {
    refuse();
    return true;
  }
  if (values.code.empty() || !values.effective.text) {
    refusal_ = qvn_format("Line %d : missing rate or code or effective date\n", line_number_);
    refuse();
    return true;
  }
  switch (task_.codes->add(values.code.data(), line_number_)) {
    case seen_codes::verdict::fresh:
      break;
    case seen_codes::verdict::repeated:
      refusal_ = qvn_format("Line %d : repeating code, %s\n", line_number_, values.code.data());
      refuse();
      return true;
    case seen_codes::verdict::no_memory:
      return false;
  }
  if (task_.code_deck_flag == 1) {
    take_from_code_deck(values);
  }
  if (!task_.imports.push(values)) {
    return false;
  }
  ++task_.accepted_count;
  return true;
}

/// Replaces code name and country by those of the code deck, if it knows the code; notes a code
/// that is only covered by a shorter one.
void deck_reader::take_from_code_deck(import_values& values) {
  const code_deck_node* const entry = find_in_code_deck(values.code.data());
  if (!entry) {
    return;
  }
  if (values.code != qvn_or_empty(entry->code)) {
    (void)std::fprintf(files_.log.get(), "Line %d : code not matching system code deck, %s\n",
                       line_number_, values.code.data());
  }
  values.code_name = qvn_or_empty(entry->name);
  values.country = qvn_or_empty(entry->country);
}

const code_deck_node* best_match(rp_hash_node* const* decks, const char* deck_id,
                                 const char* code) {
  const rp_hash_node* const deck = rp_hash_match_all(decks, deck_id);
  const rp_hash_node* const node = deck ? rp_hash_search(&deck->sub, code) : nullptr;
  return node ? static_cast<const code_deck_node*>(node->items) : nullptr;
}

const code_deck_node* deck_reader::find_in_code_deck(const char* code) const {
  if (!task_.rate_table_code_deck_id.empty()) {
    return best_match(&task_.code_deck_tree, task_.rate_table_code_deck_id.c_str(), code);
  }
  for (const std::string& deck_id : task_.code_deck_ids) {
    if (const code_deck_node* const entry =
            best_match(&task_.code_deck_tree, deck_id.c_str(), code)) {
      return entry;
    }
  }
  return nullptr;
}

/// Reports the line and keeps it for a re-upload. Whether the files take it is looked at when they
/// close.
void deck_reader::refuse() {
  (void)std::fputs(refusal_.c_str(), files_.log.get());
  ++task_.error_count;
  (void)std::fputs(line_, files_.reimport.get());
  (void)std::fputc('\n', files_.reimport.get());
  ++task_.reimport_count;
}

bool deck_reader::no_memory() {
  QVN_LOG(kLogError, kImportAllocFailed, task_.label.c_str(), task_.id);
  task_.fail(kMemoryShortage);
  return false;
}

bool read_deck(rate_upload_task& task, const import_files& files) {
  const auto buffer = std::make_unique_for_overwrite<char[]>(kFileBufferSize);
  (void)std::setvbuf(files.deck.get(), buffer.get(), _IOFBF, kFileBufferSize);
  deck_reader reader(task, files);
  return reader.read_header() && reader.read_lines();
}

}  // namespace

bool rate_upload_process_file(rate_upload_task& task) {
  rate_upload_task_progress_update(task, "Import rate processing", upload_status::validating);
  import_files files;
  if (!open_files(task, files)) {
    return false;
  }
  task.dates.emplace(task.deck_date_format, std::time(nullptr));
  const bool whole = read_deck(task, files);
  close_result_file(task, std::move(files.log), "rate_import.log");
  close_result_file(task, std::move(files.reimport), "rate_reimport.csv");
  return whole;
}
