/// A whole rate deck: a byte for the date format, a byte for the code deck and for whether its
/// middle lies where the reader reads on, then the file.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "rate_upload/import_files.h"
#include "rate_upload/rate_copy_line.h"
#include "rate_upload/rate_upload_task.h"
#include "support.h"

namespace {

constexpr std::size_t kReadAtOnce = 256 * 1024 - 1023;

/// The folder of the result files, with a trailing "/".
const std::string* g_folder = nullptr;

std::string written(const char* name) {
  std::ifstream file(*g_folder + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Makes the folder, once; returns the deck, a file in memory.
int prepare() {
  char name[] = "/dev/shm/qvn-fuzz.XXXXXX";
  FUZZ_CHECK(mkdtemp(name));
  g_folder = new std::string(std::string(name) + "/");
  (void)std::atexit([] {
    std::error_code ignored;
    std::filesystem::remove_all(*g_folder, ignored);
  });
  return memfd_create("deck", MFD_CLOEXEC);
}

/// The deck's lines as they are read: pieces of 1,023 bytes, without their ends, none empty.
std::vector<std::string> lines_of(std::string_view deck) {
  constexpr std::size_t kPiece = 1023;
  std::vector<std::string> lines;
  while (!deck.empty()) {
    const std::size_t size = std::min({deck.find('\n'), kPiece - 1, deck.size() - 1}) + 1;
    std::string line(fuzz_before_nul(deck.substr(0, size)));
    line.resize(std::min(line.find_first_of("\r\n"), line.size()));
    if (!line.empty()) {
      lines.push_back(std::move(line));
    }
    deck.remove_prefix(size);
  }
  return lines;
}

void add_deck_code(rate_upload_task& task, std::string code) {
  char deck_id[] = "1";
  char country[] = "country";
  char name[] = "name";
  char* row[kDeckColumns] = {code.data(), code.data(), deck_id, country, name};
  FUZZ_CHECK(task.data->names.add(row));
}

void check_record(const import_record& record) {
  const std::string_view code = record.code;
  FUZZ_CHECK(!code.empty() && code.find_first_not_of("0123456789") == std::string_view::npos);
  const import_terms& terms = *record.terms;
  FUZZ_CHECK(terms.effective.text && terms.interval != 0 && terms.seconds != 0);
  FUZZ_CHECK((terms.end.text != nullptr) || terms.end.epoch == 0);
  std::string line;
  rate_copy_lines("7").append(line, record);
  FUZZ_CHECK(line.starts_with("7,") && line.ends_with('\n'));
  FUZZ_CHECK(std::count(line.begin(), line.end(), ',') == 16);
  FUZZ_CHECK(std::count(line.begin(), line.end(), '\n') == 1);
}

/// The lines that came out and those that were refused are together those of the deck, in order.
void check_reimport(const rate_upload_task& task, const std::vector<std::string>& lines) {
  FUZZ_CHECK(task.figures.accepted + task.figures.refused == lines.size() - 1);
  const std::string reimport = written("rate_reimport.csv");
  std::string_view left = reimport;
  std::size_t refused = 0;
  for (std::size_t i = 1; i < lines.size() && !left.empty(); ++i) {
    const std::string refused_line = lines[i] + "\n";
    if (left.starts_with(refused_line)) {
      left.remove_prefix(refused_line.size());
      ++refused;
    }
  }
  FUZZ_CHECK(left.empty() && refused == task.figures.refused);
  const std::string log = written("rate_import.log");
  const auto messages = static_cast<std::size_t>(std::ranges::count(log, '\n'));
  FUZZ_CHECK(messages >= refused && (task.row.code_deck_flag == 1 || messages == refused));
}

void check_accepted(rate_upload_task& task) {
  uint32_t count = 0;
  seen_codes codes;
  import_list& imports = task.data->imports;
  for (; !imports.empty(); imports.pop(), ++count) {
    check_record(*imports.first());
    std::string_view code = imports.first()->code;
    FUZZ_CHECK(codes.add(code) == seen_codes::verdict::fresh);
  }
  FUZZ_CHECK(count == task.figures.accepted);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz_input input(data, size);
  rate_upload_row row;
  row.rate_date_format = static_cast<date_format>(input.byte() % 7);
  const uint8_t code_deck = input.byte();
  std::string deck(input.rest());
  if ((code_deck & 4) != 0) {
    deck.insert(0, kReadAtOnce - std::min(kReadAtOnce, deck.size() / 2), '\n');
  }
  static const int deck_file = prepare();
  FUZZ_CHECK(ftruncate(deck_file, static_cast<off_t>(deck.size())) == 0);
  FUZZ_CHECK(pwrite(deck_file, deck.data(), deck.size(), 0) == static_cast<ssize_t>(deck.size()));
  row.upload_file_path = "/proc/self/fd";
  row.upload_format_file = std::to_string(deck_file);
  row.rate_table_code_deck_id = (code_deck & 2) != 0 ? "1" : "";
  row.code_deck_flag = code_deck & 1;
  rate_upload_task task(std::move(row));
  task.folder = qvn_job_folder(*g_folder);
  task.data->codes = std::make_unique<seen_codes>();
  if (task.row.code_deck_flag == 1) {
    add_deck_code(task, "4");
    add_deck_code(task, "442");
  }

  const bool whole = rate_upload_process_file(task);
  FUZZ_CHECK(whole == !task.outcome.failed());
  if (whole) {
    check_reimport(task, lines_of(deck));
    check_accepted(task);
  } else {
    FUZZ_CHECK(std::strcmp(task.outcome.text(), "Import header invalid") == 0);
    FUZZ_CHECK(task.figures.accepted == 0 && task.data->imports.empty());
  }
  return 0;
}
