// What pricing costs without database and file, one figure a line: name, value, unit.
//
//   rating_line_length          bytes of a call record on average
//   rated_calls_per_second      whole records: split, priced against a rate table of 200,000 codes,
//                               and joined again into lines, on one core
//   rated_calls                 share of them that found a rate
//   split_and_join_per_second   the same without the pricing
//   rating_to_split_and_join    time of the first by the time of the second
//
// Usage: rating_bench [calls]

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "db/qvn_db.h"
#include "rerate/cdr_rater.h"

namespace {

constexpr uint32_t kDefaultCalls = 1'000'000;
constexpr int kCodes = 200'000;
constexpr int64_t kDay = 1'772'323'200;  // 2026-03-01 00:00:00 UTC

/// Processor time of this process; there is but one thread.
double cpu_seconds() {
  timespec now{};
  (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

void figure(const char* name, double value, const char* unit) {
  std::printf("%s %.3f %s\n", name, value, unit);
}

std::string digits(std::mt19937& random, int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    text += static_cast<char>('0' + random() % 10);
  }
  return text;
}

/// Codes of 3 to 8 digits, in random order, some with an older and a newer rate.
rp_hash_node* make_rates(std::mt19937& random) {
  rp_hash_node* codes = nullptr;
  for (int i = 0; i < kCodes; ++i) {
    const std::string code = digits(random, 3 + static_cast<int>(random() % 6));
    const std::string id = std::to_string(i);
    rate_node* const rate = rate_node_create({.code = code,
                                              .code_name = "Destination of the code",
                                              .country = "Country",
                                              .rate_id = id,
                                              .rate_table_id = "7",
                                              .time_profile_id = {}});
    rate->effective_date = kDay - 86'400 * static_cast<int64_t>(random() % 300);
    rate->seconds = 60;
    rate->interval = 6;
    rate->min_time = 30;
    rate->rate = 0.0001F * static_cast<float>(random() % 5000 + 1);
    rate_node_link(rp_hash_create(&codes, code.c_str()), rate);
  }
  return codes;
}

/// A record with most columns filled, as a switch writes them.
std::string make_line(std::mt19937& random) {
  std::string line;
  for (std::size_t column = 0; column < kCdrColumns; ++column) {
    switch (column) {
      case kStartTimeOfDate:
        line += std::to_string((kDay + static_cast<int64_t>(random() % 86'400)) * 1'000'000);
        break;
      case kRoutingDigits:
      case kLrnDnis:
      case kTranslationAni:
        line += digits(random, 11);
        break;
      case kCallDuration:
        line += std::to_string(1 + random() % 1200);
        break;
      case kIngressDnisType:
        line += '0';
        break;
      case kIngressRateType:
      case kEgressRateType:
        break;
      default:
        if (column % 9 != 0) {
          line += digits(random, 1 + static_cast<int>(column * 7 % 11));
        }
    }
    line += column + 1 < kCdrColumns ? ',' : '\n';
  }
  return line;
}

std::vector<std::string> make_calls(uint32_t count) {
  std::vector<std::string> calls;
  std::mt19937 random(1);
  for (uint32_t i = 0; i < count; ++i) {
    calls.push_back(make_line(random));
  }
  return calls;
}

/// Splits and joins every record, with `rate` between; seconds.
template <class Rate>
double run(std::vector<std::string> calls, Rate rate) {
  constexpr std::size_t kWriteSize = std::size_t{256} << 10;
  std::array<std::string_view, kCdrColumns> fields;
  std::string buffer;
  const double begin = cpu_seconds();
  for (std::string& line : calls) {
    fields.fill("");
    pg_row_csv_parse(line.data(), cdr_columns(fields));
    rate(cdr_columns(fields));
    cdr_line_append(buffer, fields);
    if (buffer.size() >= kWriteSize) {
      asm volatile("" : : "r"(buffer.data()) : "memory");  // what a write would see
      buffer.clear();
    }
  }
  return cpu_seconds() - begin;
}

}  // namespace

int main(int argc, char** argv) {
  const auto count =
      argc > 1 ? static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10)) : kDefaultCalls;
  std::mt19937 random(2);
  pricing_terms terms;
  terms.codes = make_rates(random);
  terms.rate_decimal = 5;
  cdr_rater rater(call_side::ingress, terms, kDay);

  figure("rating_line_length", static_cast<double>(make_line(random).size()), "bytes");
  const double frame = run(make_calls(count), [](cdr_columns) {});
  uint32_t rated = 0;
  const double whole = run(make_calls(count), [&](cdr_columns columns) {
    rated += rater.rate(columns) == cdr_rater::outcome::rated ? 1 : 0;
  });
  figure("rated_calls_per_second", count / whole, "calls/s");
  figure("rated_calls", 100.0 * rated / count, "percent");
  figure("split_and_join_per_second", count / frame, "calls/s");
  figure("rating_to_split_and_join", whole / frame, "ratio");
  (void)rp_hash_destroy(&terms.codes, delete_rate_node);
}
