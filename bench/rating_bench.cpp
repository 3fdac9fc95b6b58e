// What pricing costs without database and file, one figure a line: name, value, unit.
//
//   rating_line_length          bytes of a call record on average
//   rated_calls_per_second      lines priced against a rate table of 200,000 codes, on one core
//   rated_calls                 share of them that found a rate
//   plain_calls_per_second      the same one line at a time: all columns split off, the numbers by
//                               the C library, the columns joined
//   rating_to_plain             calls a second of the first by those of the second
//   split_and_join_per_second   the plain way without the pricing
//   rating_to_split_and_join    time of the first by the time of the last
//
// The ways take turns in five rounds; the medians count. Each line is copied to where the
// connection would have put it, which is part of the time.
//
// Usage: rating_bench [calls a round]

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <random>
#include <string>

#include "db/qvn_row_split.h"
#include "plain_rater.h"
#include "rerate/cdr_pricer.h"

namespace {

constexpr uint32_t kDefaultCalls = 200'000;
constexpr std::size_t kRounds = 5;
constexpr std::size_t kWriteSize = std::size_t{256} << 10;
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

/// Lines one after the other, a NUL after each.
std::string make_lines(uint32_t count) {
  std::string lines;
  std::mt19937 random(1);
  for (uint32_t i = 0; i < count; ++i) {
    (lines += make_line(random)) += '\0';
  }
  return lines;
}

/// What a write would see of a full buffer, which begins anew.
void write_out(std::string& buffer, std::size_t full) {
  if (buffer.size() >= full) {
    asm volatile("" : : "r"(buffer.data()) : "memory");
    buffer.clear();
  }
}

/// Hands out every line in a block of its own, as libpq does; calls a second.
template <class Take>
double run(const std::string& lines, Take take) {
  uint32_t count = 0;
  const double begin = cpu_seconds();
  for (const char* line = lines.data(); line < lines.data() + lines.size(); ++count) {
    const std::size_t size = std::strlen(line) + 1;
    const std::unique_ptr<char[]> row = std::make_unique_for_overwrite<char[]>(size);
    std::memcpy(row.get(), line, size);
    take(row.get());
    line += size;
  }
  return count / (cpu_seconds() - begin);
}

/// One line at a time, with `rate` between splitting and joining.
template <class Rate>
double run_plain(const std::string& lines, Rate rate) {
  std::array<std::string_view, kCdrColumns> fields;
  std::string buffer;
  return run(lines, [&](char* line) {
    fields.fill("");
    pg_row_csv_parse(line, cdr_columns(fields));
    rate(cdr_columns(fields));
    cdr_line_append(buffer, fields);
    write_out(buffer, kWriteSize);
  });
}

double run_pricer(const std::string& lines, const pricing_terms& terms) {
  cdr_pricer pricer(call_side::ingress, terms, kDay, kCdrColumns);
  priced_calls out;
  return run(lines, [&](char* line) {
    pricer.add(line, out);
    write_out(out.lines, kWriteSize);
  });
}

using rounds = std::array<double, kRounds>;

double median(rounds values) {
  std::ranges::sort(values);
  return values[kRounds / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const auto count =
      argc > 1 ? static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10)) : kDefaultCalls;
  std::mt19937 random(2);
  pricing_terms terms;
  terms.codes = make_rates(random);
  terms.rate_decimal = 5;
  const std::string lines = make_lines(count);
  figure("rating_line_length", static_cast<double>(lines.size()) / count - 1, "bytes");
  plain_rater rater(call_side::ingress, terms, kDay);
  uint32_t rated = 0;
  rounds priced{};
  rounds plain{};
  rounds frame{};
  for (std::size_t round = 0; round < kRounds; ++round) {
    priced[round] = run_pricer(lines, terms);
    plain[round] = run_plain(lines, [&](cdr_columns columns) {
      rated += rater.rate(columns) == plain_rater::outcome::rated ? 1 : 0;
    });
    frame[round] = run_plain(lines, [](cdr_columns) {});
  }
  figure("rated_calls_per_second", median(priced), "calls/s");
  figure("rated_calls", 100.0 * rated / count / kRounds, "percent");
  figure("plain_calls_per_second", median(plain), "calls/s");
  figure("rating_to_plain", median(priced) / median(plain), "ratio");
  figure("split_and_join_per_second", median(frame), "calls/s");
  figure("rating_to_split_and_join", median(frame) / median(priced), "ratio");
  (void)rp_hash_destroy(&terms.codes, delete_rate_node);
}
