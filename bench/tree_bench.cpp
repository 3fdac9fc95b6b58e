// What the prefix tree costs with a large rate table in it, one figure a line: name, value, unit.
// Times are processor time.
//
// Each set of codes is loaded as a job loads it: an outer node for the rate table, a node a code
// below it, one rate record at each. A number is looked up by its longest prefix.
//
//   dense      consecutive codes of 8 digits, in order: a full national plan
//   shuffled   the same in random order
//   clustered  codes of 3 to 10 digits below thousands of areas, in random order: a usual deck
//   scattered  codes of 3 to 10 random digits, in random order: nodes lie as far apart as can be
//   rating     a fifth as many clustered codes: one of the rate tables that calls are rated by
//
//   SET_load             building the tree
//   SET_memory           what the process grew by
//   SET_search           a number of 11 digits, nine of ten below a random code, else random,
//                        sixteen at a time as calls are priced; median of five rounds
//   SET_search_alone     the same one by one
//   SET_map              the same by std::map, probing the number's prefixes, longest first
//   SET_unordered_map    the same by std::unordered_map
//   SET_..._ratio        the map's time by the tree's, one by one
//   SET_free             destroying the tree with its records
//
// Usage: tree_bench [codes [set]]

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <span>
#include <stdlib.h>
#include <string>
#include <string_view>
#include <time.h>
#include <unistd.h>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "rate/qvn_rate_table.h"
#include "rate/rp_hash.h"

namespace {

using number_text = std::array<char, 12>;  ///< 11 digits and a NUL

constexpr unsigned kSeed = 4420;
constexpr std::size_t kDefaultCodes = 1'000'000;
constexpr std::size_t kRounds = 5;
constexpr std::size_t kNumbers = 1'000'000;
constexpr std::size_t kMapNumbers = 100'000;
constexpr std::size_t kCodesPerArea = 50;

/// Processor time of this thread, kernel included, in seconds: the turns of other processes on a
/// busy machine are not in it.
double now() {
  timespec time{};
  (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);  // cannot fail for this clock
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

void figure(std::string_view set, std::string_view what, double value, const char* unit) {
  std::printf("%s_%s %.*f %s\n", std::string(set).c_str(), std::string(what).c_str(),
              value < 10 ? 3 : 0, value, unit);
  std::fflush(stdout);
}

std::size_t resident_bytes() {
  unsigned long pages = 0;
  std::FILE* const file = std::fopen("/proc/self/statm", "re");
  if (!file || std::fscanf(file, "%*u %lu", &pages) != 1) {
    std::fprintf(stderr, "tree_bench: cannot read the memory of the process\n");
    exit(1);
  }
  (void)std::fclose(file);
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// --- codes and numbers
// ------------------------------------------------------------------------------

using random_source = std::mt19937_64;

void add_digits(std::string& text, std::size_t length, random_source& random) {
  while (text.size() < length) {
    text += static_cast<char>('0' + random() % 10);
  }
}

std::vector<std::string> dense_codes(std::size_t count, random_source& /*unused*/) {
  std::vector<std::string> codes;
  for (std::size_t i = 0; i < count; ++i) {
    codes.push_back(std::to_string(10'000'000 + i));
  }
  return codes;
}

std::vector<std::string> shuffled_codes(std::size_t count, random_source& random) {
  std::vector<std::string> codes = dense_codes(count, random);
  std::ranges::shuffle(codes, random);
  return codes;
}

/// As many different codes as asked for; `draw` makes one.
template <class Draw>
std::vector<std::string> distinct_codes(std::size_t count, random_source& random, Draw draw) {
  std::unordered_set<std::string> distinct;
  while (distinct.size() < count) {
    distinct.insert(draw());
  }
  std::vector<std::string> codes(distinct.begin(), distinct.end());
  std::ranges::sort(codes);  // the set's order is not to be seen in the figures
  std::ranges::shuffle(codes, random);
  return codes;
}

std::vector<std::string> scattered_codes(std::size_t count, random_source& random) {
  std::discrete_distribution<std::size_t> length{0, 0, 0, 1, 5, 40, 150, 300, 250, 150, 104};
  return distinct_codes(count, random, [&] {
    std::string code(1, static_cast<char>('1' + random() % 9));
    add_digits(code, length(random), random);
    return code;
  });
}

std::vector<std::string> clustered_codes(std::size_t count, random_source& random) {
  std::vector<std::string> areas(count / kCodesPerArea + 1);
  for (std::string& area : areas) {
    area = static_cast<char>('1' + random() % 9);
    add_digits(area, 3 + random() % 4, random);
  }
  return distinct_codes(count, random, [&] {
    std::string code = areas[random() % areas.size()];
    add_digits(code, std::min<std::size_t>(code.size() + random() % 5, 10), random);
    return code;
  });
}

std::vector<std::string> rating_codes(std::size_t count, random_source& random) {
  return clustered_codes(count / 5, random);
}

struct code_set {
  std::string_view name;
  std::vector<std::string> (*make)(std::size_t count, random_source& random);
};

constexpr code_set kSets[] = {
    {"dense", dense_codes},         {"shuffled", shuffled_codes}, {"clustered", clustered_codes},
    {"scattered", scattered_codes}, {"rating", rating_codes},
};

std::vector<number_text> dialled_numbers(const std::vector<std::string>& codes,
                                         random_source& random) {
  std::vector<number_text> numbers(kNumbers);
  for (number_text& number : numbers) {
    std::string text = random() % 10 == 0 ? std::string() : codes[random() % codes.size()];
    add_digits(text, number.size() - 1, random);
    std::memcpy(number.data(), text.c_str(), number.size());
  }
  return numbers;
}

// --- the tree
// -----------------------------------------------------------------------------------------

bool load(rp_hash_node** slot, const std::vector<std::string>& codes) {
  for (const std::string& code : codes) {
    rate_node* const rate =
        rate_node_create({.code = code, .rate_id = "1234567", .rate_table_id = "7"});
    rp_hash_node* const table = rate ? rp_hash_create(slot, "7") : nullptr;
    rp_hash_node* const node = table ? rp_hash_create(&table->sub, code.c_str()) : nullptr;
    if (!node) {
      std::fprintf(stderr, "tree_bench: out of memory\n");
      return false;
    }
    rate_node_link(node, rate);
  }
  return true;
}

/// The prefix that the node found stands for is known by its length.
std::size_t tree_lookup(rp_hash_node* const* tree, const number_text& number) {
  const rp_hash_node* const node = rp_hash_search(tree, number.data());
  return node ? node->depth : 0;
}

/// Lengths of all prefixes, found in batches.
uint64_t tree_lookups(rp_hash_node* const* tree, std::span<const number_text> numbers) {
  std::array<std::string_view, kRpHashInFlight> keys;
  std::array<rp_hash_node*, kRpHashInFlight> nodes{};
  uint64_t lengths = 0;
  for (std::size_t first = 0; first < numbers.size(); first += keys.size()) {
    const std::size_t count = std::min(keys.size(), numbers.size() - first);
    for (std::size_t i = 0; i < count; ++i) {
      keys[i] = std::string_view(numbers[first + i].data(), numbers[first + i].size() - 1);
    }
    rp_hash_search_each(tree, std::span(keys).first(count), nodes.data());
    for (std::size_t i = 0; i < count; ++i) {
      lengths += nodes[i] ? nodes[i]->depth : 0;
    }
  }
  return lengths;
}

template <class Map>
std::size_t map_lookup(const Map& map, std::size_t longest, const number_text& number) {
  for (std::size_t length = longest; length > 0; --length) {
    if (map.find(std::string_view(number.data(), length)) != map.end()) {
      return length;
    }
  }
  return 0;
}

struct text_hash : std::hash<std::string_view> {
  using is_transparent = void;
};

/// Nanoseconds a number, the median of some rounds; adds up the lengths found.
template <class Lookups>
double time_all(std::span<const number_text> numbers, uint64_t& found, Lookups lookups) {
  std::array<double, kRounds> rounds{};
  for (double& round : rounds) {
    const double start = now();
    found += lookups(numbers);
    round = 1e9 * (now() - start) / static_cast<double>(numbers.size());
  }
  std::ranges::sort(rounds);
  return rounds[kRounds / 2];
}

/// The same, number by number.
template <class Lookup>
double time_lookups(std::span<const number_text> numbers, uint64_t& found, Lookup lookup) {
  return time_all(numbers, found, [&](std::span<const number_text> all) {
    uint64_t lengths = 0;
    for (const number_text& number : all) {
      lengths += lookup(number);
    }
    return lengths;
  });
}

template <class Map>
bool compare_with(std::string_view set, const std::string& what, const Map& map, double tree_time,
                  rp_hash_node* const* tree, std::span<const number_text> numbers,
                  std::size_t longest) {
  uint64_t by_tree = 0;
  uint64_t by_map = 0;
  const std::span<const number_text> some = numbers.first(kMapNumbers);
  (void)time_lookups(some, by_tree,
                     [tree](const number_text& number) { return tree_lookup(tree, number); });
  const double map_time = time_lookups(
      some, by_map, [&](const number_text& number) { return map_lookup(map, longest, number); });
  figure(set, what, map_time, "ns");
  figure(set, what + "_ratio", map_time / tree_time, "x");
  if (by_tree != by_map) {
    std::fprintf(stderr, "tree_bench: tree and %s disagree about set %s\n", what.c_str(),
                 std::string(set).c_str());
  }
  return by_tree == by_map;
}

bool measure(std::string_view set, const std::vector<std::string>& codes, random_source& random) {
  const std::vector<number_text> numbers = dialled_numbers(codes, random);
  rp_hash_node* root = nullptr;
  const std::size_t before = resident_bytes();
  double start = now();
  if (!load(&root, codes)) {
    return false;
  }
  figure(set, "load", now() - start, "s");
  figure(set, "memory",
         static_cast<double>(resident_bytes() - before) / static_cast<double>(codes.size()),
         "bytes/code");

  rp_hash_node* const* const tree = &rp_hash_match_all(&root, "7")->sub;
  uint64_t in_batches = 0;
  uint64_t one_by_one = 0;
  figure(set, "search",
         time_all(numbers, in_batches,
                  [tree](std::span<const number_text> all) { return tree_lookups(tree, all); }),
         "ns");
  const double search = time_lookups(
      numbers, one_by_one, [tree](const number_text& number) { return tree_lookup(tree, number); });
  figure(set, "search_alone", search, "ns");

  const std::size_t longest = std::ranges::max_element(codes, {}, &std::string::size)->size();
  bool same = in_batches == one_by_one;
  if (!same) {
    std::fprintf(stderr, "tree_bench: searches in batches and one by one disagree\n");
  }
  {
    std::map<std::string, int, std::less<>> map;
    for (const std::string& code : codes) {
      map.emplace(code, 0);
    }
    same = compare_with(set, "map", map, search, tree, numbers, longest);
  }
  {
    std::unordered_map<std::string, int, text_hash, std::equal_to<>> map;
    for (const std::string& code : codes) {
      map.emplace(code, 0);
    }
    same = compare_with(set, "unordered_map", map, search, tree, numbers, longest) && same;
  }

  start = now();
  (void)rp_hash_destroy(&root, delete_rate_node);
  figure(set, "free", now() - start, "s");
  return same;
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t count = argc > 1 ? strtoul(argv[1], nullptr, 10) : kDefaultCodes;
  const std::string_view only = argc > 2 ? argv[2] : "";
  const auto* const end = std::end(kSets);
  if (count < 1000 || count > 10'000'000 ||
      (!only.empty() && std::ranges::find(kSets, only, &code_set::name) == end)) {
    std::fprintf(stderr, "Usage: tree_bench [codes, 1000 to 10000000 [set]]\n");
    return 2;
  }
  bool good = true;
  for (const code_set& set : kSets) {
    if (only.empty() || only == set.name) {
      random_source random(kSeed);
      good = measure(set.name, set.make(count, random), random) && good;
    }
  }
  return good ? 0 : 1;
}
