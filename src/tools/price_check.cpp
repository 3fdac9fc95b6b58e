#include "tools/price_check.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "rerate/cdr_line.h"
#include "rerate/cdr_pricer.h"
#include "tools/price_explain.h"
#include "tools/price_world.h"
#include "tools/tool_database.h"
#include "tools/tool_log.h"

namespace {

tool_status unusable(const std::string& failure) {
  (void)std::fprintf(stderr, "qvn_price_check: %s\n", price_shown(failure).c_str());
  return kUnusable;
}

/// A record with nothing but what is given.
std::string made_up_line(const price_check_options& options) {
  constexpr int64_t kMicrosecondsPerSecond = 1'000'000;
  std::string line;
  for (std::size_t column = 0; column < kCdrColumns; ++column) {
    if (column == kStartTimeOfDate) {
      line += std::to_string(options.at.value_or(0) * kMicrosecondsPerSecond);
    } else if (column == kRoutingDigits) {
      line += options.number;
    } else if (column == kCallDuration) {
      line += std::to_string(options.seconds);
    } else if (column == kTranslationAni) {
      line += options.ani;
    }
    line += column + 1 < kCdrColumns ? "," : "";
  }
  return line;
}

tool_status explain(const price_check_options& options, price_world& world,
                    const std::string& line) {
  std::vector<char> memory(cdr_line::room(line.size(), kCdrColumns));
  cdr_line call;
  call.split(line.data(), line.size(), kCdrColumns, memory.data());
  const call_facts facts = facts_of(call, world.trunk().side);
  const pricing_terms terms = world.terms();
  const price_explanation answer = price_explain({.trunk = world.trunk(),
                                                  .terms = terms,
                                                  .asks_for_jurisdictions = options.jurisdictions,
                                                  .is_recorded = !options.session_id.empty(),
                                                  .all_columns = options.all_columns},
                                                 call, facts, world.unloaded_rates(facts));
  (void)std::fputs(answer.text.c_str(), stdout);
  return answer.is_priced ? kNothingToSay : kFindings;
}

}  // namespace

tool_status price_check(const price_check_options& options) {
  std::string failure;
  pg_connection connection = tool_connect(options.section, "Price check", failure);
  if (!connection) {
    return unusable(failure);
  }
  tool_log log;
  price_world world(options, std::move(connection));
  std::vector<std::string> lines;
  failure = world.load();
  if (failure.empty() && options.session_id.empty()) {
    lines.push_back(made_up_line(options));
  } else if (failure.empty()) {
    failure = world.load_calls(options.session_id, lines);
  }
  (void)std::fputs(log.take().c_str(), stderr);
  if (!failure.empty()) {
    return unusable(failure);
  }
  if (!world.has_rates()) {
    std::printf("No rate of the rate table is in force then: a rerating of that day fails.\n");
  }
  tool_status status = kNothingToSay;
  for (const std::string& line : lines) {
    (void)std::fputs(&line == lines.data() ? "" : "\n", stdout);
    status = std::max(status, explain(options, world, line));
  }
  (void)std::fputs(log.take().c_str(), stderr);
  return status;
}
