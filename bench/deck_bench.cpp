// What reading and checking a deck costs, one figure a line: name, value, unit. Processor time, the
// median of some rounds.
//
// A deck is read as an import reads it, its accepted lines kept as for the COPY. Codes are uneven,
// 3 to 11 digits below some thousand areas. A hundred lines in a row share a destination, whatever
// the size; half of the lines have one effective date and half another.
//
//   deck_line_N         a line of a deck of N
//   deck_growth         that of the largest deck by that of the smallest
//   deck_hostile_line   a line of a deck whose 35-digit codes all have one value under the hash of
//                       the daemon's keyed table
//   deck_hostile_ratio  the same by a line of random 35-digit codes
//   deck_memory_N       what such a line takes while it waits for the COPY
//
// Usage: deck_bench [lines...]

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <random>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <unordered_set>
#include <vector>

#include "rate_upload/deck_validation.h"
#include "rate_upload/import_record.h"

namespace {

constexpr unsigned kSeed = 4420;
constexpr std::size_t kLinesPerDestination = 100;
constexpr std::size_t kHostileLines = 100'000;
constexpr std::size_t kLinesPerFigure = 3'000'000;  // read in all, over some rounds
constexpr std::size_t kFewestRounds = 3;
constexpr const char* kHeader = "code,code_name,country,rate,effective_date\n";

double now() {
  timespec time{};
  (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);  // cannot fail for this clock
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

void figure(const std::string& name, double value, const char* unit) {
  std::printf("%s %.3f %s\n", name.c_str(), value, unit);
  std::fflush(stdout);
}

[[noreturn]] void give_up(const char* why) {
  (void)std::fprintf(stderr, "deck_bench: %s\n", why);
  std::exit(1);
}

std::size_t resident_bytes() {
  unsigned long pages = 0;
  const qvn_file file(std::fopen("/proc/self/statm", "re"));
  if (!file || std::fscanf(file.get(), "%*u %lu", &pages) != 1) {
    give_up("cannot read the memory of the process");
  }
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::string today() {
  const std::time_t moment = std::time(nullptr);
  char text[16];
  (void)std::strftime(text, sizeof text, "%F", std::gmtime(&moment));
  return text;
}

/// Different codes of 3 to 11 digits, in the order of their areas.
std::vector<std::string> uneven_codes(std::size_t count) {
  std::mt19937 random(kSeed);
  std::unordered_set<std::string> codes;
  while (codes.size() < count) {
    std::string code = std::to_string(100 + random() % 9000);
    for (std::size_t more = random() % 8; more > 0; --more) {
      code += static_cast<char>('0' + random() % 10);
    }
    codes.insert(code);
  }
  std::vector<std::string> sorted(codes.begin(), codes.end());
  std::ranges::sort(sorted);
  return sorted;
}

std::vector<std::string> long_codes() {
  std::mt19937 random(kSeed);
  std::vector<std::string> codes(kHostileLines, std::string(35, '0'));
  for (std::string& code : codes) {
    std::ranges::generate(code, [&] { return static_cast<char>('0' + random() % 10); });
  }
  return codes;
}

/// Codes that differ by exchanges of digits sixteen places apart.
std::vector<std::string> hostile_codes() {
  constexpr std::size_t kPairs = 13;
  constexpr std::size_t kFirstPair = 3;
  static constexpr std::array<const char*, 6> kOrders = {"123", "132", "213", "231", "312", "321"};
  std::vector<std::string> codes;
  for (std::size_t i = 0; i < kHostileLines; ++i) {
    std::string code(35, '0');
    for (std::size_t pair = 0; pair < kPairs; ++pair) {
      const std::size_t first = kFirstPair + pair + ((i >> pair & 1) != 0 ? 16 : 0);
      code[first] = '7';
    }
    std::size_t orders = i >> kPairs;
    for (std::size_t place = 0; place < kFirstPair; ++place, orders /= kOrders.size()) {
      for (std::size_t third = 0; third < 3; ++third) {
        code[place + 16 * third] = kOrders[orders % kOrders.size()][third];
      }
    }
    codes.push_back(code);
  }
  return codes;
}

qvn_file make_deck(const std::vector<std::string>& codes) {
  qvn_file deck(fdopen(memfd_create("deck", MFD_CLOEXEC), "w+"));
  if (!deck) {
    give_up("cannot make a deck");
  }
  const std::array<std::string, 2> dates = {today(), "2024-03-01"};
  (void)std::fputs(kHeader, deck.get());
  for (std::size_t i = 0; i < codes.size(); ++i) {
    const std::size_t destination = i / kLinesPerDestination;
    (void)std::fprintf(deck.get(), "%s,Destination %05zu Mobile,Country %04zu,0.%04zu,%s\n",
                       codes[i].c_str(), destination, destination / 10, i * 7919 % 10000,
                       dates[i % 2].c_str());
  }
  if (std::fflush(deck.get()) != 0) {
    give_up("cannot write a deck");
  }
  return deck;
}

/// Keeps the lines as a job does.
class kept_lines final : public rate_deck_listener {
 public:
  bool accepted(const import_values& values, const rate_deck_line& /*line*/) override {
    ++count;
    return records.push(values);
  }
  void refused(std::string_view /*message*/, const rate_deck_line& /*line*/) override {}

  std::size_t count = 0;
  import_list records;
};

struct reading {
  double seconds;
  std::size_t bytes;  ///< by which the process has grown
};

reading read_deck(std::FILE* deck, std::size_t lines) {
  (void)lseek(fileno(deck), 0, SEEK_SET);
  const std::size_t before = resident_bytes();
  const double begin = now();
  rate_date_reader dates(date_format::ymd_dash, std::time(nullptr));
  const auto codes = std::make_unique<seen_codes>();
  kept_lines kept;
  const rate_deck_request request{deck, nullptr, nullptr, dates, *codes, nullptr, ""};
  if (rate_deck_validate(request, kept) != rate_deck_end::whole || kept.count != lines) {
    give_up("the deck is not taken whole");
  }
  return {now() - begin, resident_bytes() - before};
}

/// Microseconds a line, the median of the rounds; `bytes`, if given, a line's memory.
double line_cost(const std::vector<std::string>& codes, double* bytes = nullptr) {
  const qvn_file deck = make_deck(codes);
  std::vector<double> seconds;
  std::size_t grown = 0;
  const std::size_t rounds = std::max(kFewestRounds, kLinesPerFigure / codes.size());
  for (std::size_t round = 0; round < rounds; ++round) {
    const reading result = read_deck(deck.get(), codes.size());
    seconds.push_back(result.seconds);
    grown = std::max(grown, result.bytes);
  }
  if (bytes) {
    *bytes = static_cast<double>(grown) / static_cast<double>(codes.size());
  }
  std::ranges::nth_element(seconds, seconds.begin() + static_cast<std::ptrdiff_t>(rounds / 2));
  return 1e6 * seconds[rounds / 2] / static_cast<double>(codes.size());
}

}  // namespace

int main(int count, char** arguments) {
  std::vector<std::size_t> sizes;
  for (int i = 1; i < count; ++i) {
    sizes.push_back(std::strtoul(arguments[i], nullptr, 10));
  }
  if (sizes.empty()) {
    sizes = {10'000, 100'000, 1'000'000, 3'000'000};
  }
  std::vector<double> costs;
  for (const std::size_t size : sizes) {
    double bytes = 0;
    costs.push_back(line_cost(uneven_codes(size), &bytes));
    figure("deck_line_" + std::to_string(size), costs.back(), "us");
    figure("deck_memory_" + std::to_string(size), bytes, "bytes");
  }
  figure("deck_growth", costs.back() / costs.front(), "ratio");
  const double hostile = line_cost(hostile_codes());
  figure("deck_hostile_line", hostile, "us");
  figure("deck_hostile_ratio", hostile / line_cost(long_codes()), "ratio");
  return 0;
}
