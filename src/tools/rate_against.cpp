#include "tools/rate_against.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>
#include <memory>
#include <new>

#include "base/qvn_text.h"
#include "db/qvn_pg_rows.h"
#include "rate/rate_query.h"
#include "rate_upload/rate_copy_line.h"
#include "rate_upload/rate_load.h"
#include "rate_upload/rate_reconcile.h"
#include "tools/shown_lines.h"
#include "tools/tool_database.h"

namespace {

constexpr const char* kLabel = "Rate check";

/// All that is loaded is of one moment.
constexpr const char* kOneMoment = "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY";

constexpr std::size_t kMostShown = 10;

/// The prices of a rate. Only the last one is never missing: it is 0 where it was not given.
constexpr const char* kPrices[] = {"rate", "intra_rate", "inter_rate", "local_rate", "setup_fee"};
constexpr std::size_t kSetupFee = 4;

/// By kind: of the counts, and in the file of changes.
constexpr const char* kCounted[] = {"codes are new", "get dearer", "get cheaper",
                                    "keep their prices", "lack a price, before or after"};
constexpr const char* kInFile[] = {"new", "dearer", "cheaper", "same", "missing"};

/// A number that is none counts as missing, too.
double number_of(std::string_view text) {
  double number = -1;
  (void)std::from_chars(text.data(), text.data() + text.size(), number);
  return std::isfinite(number) ? number : -1;
}

/// The amount as the COPY would write it.
double as_stored(float amount) {
  std::string text;
  append_money(text, amount);
  return amount < 0.0F ? -1 : number_of(text);
}

/// Empty for a missing price.
std::string price_text(double price) {
  std::array<char, 400> digits{};
  const auto result =
      std::to_chars(digits.data(), digits.data() + digits.size(), price, std::chars_format::fixed);
  return price < 0 ? "" : std::string(digits.data(), result.ptr);
}

/// A name as a cell of a spreadsheet.
std::string quoted(const char* name) {
  std::string cell = shown(name ? name : "");
  for (std::size_t at = cell.find('"'); at != std::string::npos; at = cell.find('"', at + 2)) {
    cell.insert(at, 1, '"');
  }
  return '"' + cell + '"';
}

uint32_t size_of(const statement_list& list) {
  uint32_t size = 0;
  list.look_through([&](const rate_statement&) { return ++size > 0; });
  return size;
}

void print_count(std::size_t count, const char* what, bool always) {
  if (count > 0 || always) {
    std::printf("%8zu  %s\n", count, what);
  }
}

}  // namespace

double rate_against::price_change::percent() const {
  return before > 0 ? (after - before) / before * 100 : HUGE_VAL;
}

bool rate_against::refuse(const std::string& why) const {
  (void)std::fprintf(stderr, "[%s]: %s\n", shown(section_).c_str(),
                     shown(why.substr(0, why.find('\n'))).c_str());
  return false;
}

rate_against::prices rate_against::stored_prices(std::span<char* const> fields) {
  prices values{};
  std::ranges::transform(fields, values.begin(), number_of);
  values[kSetupFee] = std::max(values[kSetupFee], 0.0);
  return values;
}

rate_against::prices rate_against::deck_prices(const import_record& line) {
  return {as_stored(line.rate), as_stored(line.intra_rate), as_stored(line.inter_rate),
          as_stored(line.local_rate), as_stored(std::max(line.terms->setup_fee, 0.0F))};
}

/// The daemon's loader keeps no prices.
bool rate_against::load_prices(int64_t time) {
  constexpr std::size_t kColumns = 7;
  const std::string sql =
      rates_not_ended_copy("rate_id, code, rate, intra_rate, inter_rate, local_rate, setup_fee",
                           job_.row.rate_table_id, time);
  return qvn_pg_copy_fields(
             job_.connection.get(), sql.c_str(), kColumns, kLabel, [&](std::span<char*> fields) {
               stored_.insert_or_assign(fields[0],
                                        stored_price{fields[1], stored_prices(fields.subspan(2))});
             }) == pg_copy_end::whole;
}

/// A date that the server does not take ends no rate, and the import finishes all the same.
bool rate_against::takes_end_date() const {
  PGconn* const connection = job_.connection.get();
  const std::string& text = job_.row.rate_end_date;
  const std::unique_ptr<char, decltype(&PQfreemem)> literal(
      PQescapeLiteral(connection, text.c_str(), text.size()), PQfreemem);
  return text.empty() ||
         (literal &&
          qvn_db_try_update(connection,
                            qvn_format("SELECT %s::timestamptz", literal.get()).c_str()) == 0);
}

bool rate_against::load() {
  std::string failure;
  job_.connection = tool_connect(section_, kLabel, failure);
  if (!job_.connection) {
    return refuse(failure);
  }
  PGconn* const connection = job_.connection.get();
  const int64_t begin = std::time(nullptr);
  if (!takes_end_date()) {
    return refuse(std::string("rate_end_date: ") + PQerrorMessage(connection));
  }
  if (qvn_db_try_update(connection, kOneMoment) != 0 || !rate_upload_load(job_) ||
      !load_prices(begin)) {
    const std::string what = job_.outcome.failed() ? job_.outcome.text() : "Load rate data failed";
    return refuse(what + ": " + PQerrorMessage(connection));
  }
  job_.connection.reset();
  return true;
}

/// Compares with the rate that would be in force when the new one begins.
rate_against::price_change rate_against::judge(const import_record& line) {
  const stored_rate* last = nullptr;
  job_.data->rates.look_through(line.code, [&](const stored_rate& rate) {
    const bool is_earlier = rate.effective_date <= line.terms->effective.epoch;
    last = is_earlier ? &rate : last;
    return is_earlier;
  });
  const prices after = deck_prices(line);
  const auto stored = last ? stored_.find(last->rate_id) : stored_.end();
  if (stored == stored_.end()) {
    return {&line, kind::fresh, 0, -1, after[0]};
  }
  const prices& before = stored->second.values;
  const auto differs =
      static_cast<std::size_t>(std::ranges::mismatch(before, after).in1 - before.begin());
  if (differs == after.size()) {
    return {&line, kind::same, 0, before[0], after[0]};
  }
  kind what = after[differs] > before[differs] ? kind::dearer : kind::cheaper;
  what = std::min(before[differs], after[differs]) < 0 ? kind::unpriced : what;
  return {&line, what, differs, before[differs], after[differs]};
}

void rate_against::reconcile() {
  rate_upload_data& data = *job_.data;
  const rate_reconciler reconciler{job_.row.reduplicate_rate_action,
                                   !job_.row.rate_end_date.empty(), std::time(nullptr)};
  const bool keeps = job_.row.reduplicate_rate_action != kDeleteRepeatedRate &&
                     job_.row.reduplicate_rate_action != kEndRepeatedRate;
  data.imports.look_through([&](const import_record& line) {
    if (!reconciler.reconcile(line, data.rates, data.updates, data.deletions)) {
      throw std::bad_alloc();
    }
    data.rates.look_through(line.code, [&](const stored_rate& rate) {
      doubled_ += keeps && rate.effective_date == line.terms->effective.epoch ? 1 : 0;
      return rate.effective_date <= line.terms->effective.epoch;
    });
    return true;
  });
}

/// The stored codes that no accepted line has; they count as seen from then on.
std::size_t rate_against::missing_codes() {
  constexpr std::size_t kLongest = 1024;  // than which no line is longer
  std::size_t missing = 0;
  for (const auto& [id, rate] : stored_) {
    std::string_view code = std::string_view(rate.code).substr(0, kLongest);
    const seen_codes::verdict verdict = job_.data->codes->add(code);
    if (verdict == seen_codes::verdict::no_memory) {
      throw std::bad_alloc();
    }
    missing += verdict == seen_codes::verdict::fresh ? 1 : 0;
  }
  return missing;
}

void rate_against::print_counts() {
  std::printf("against [%s], rate table %s, with %zu rates that have not ended:\n",
              shown(section_).c_str(), job_.row.rate_table_id.c_str(), stored_.size());
  for (std::size_t i = 0; i < counts_.size(); ++i) {
    print_count(counts_[i], kCounted[i], static_cast<kind>(i) != kind::unpriced);
  }
  print_count(size_of(job_.data->updates), "stored rates end", true);
  print_count(size_of(job_.data->deletions), "stored rates are deleted", true);
  print_count(doubled_, "stored rates of the same date stay beside the new ones", false);
  print_count(missing_codes(), "stored codes have no accepted line and stay", false);
}

void rate_against::print_largest(std::vector<price_change> changes) {
  const auto larger = [](const price_change& one, const price_change& other) {
    return std::abs(one.percent()) > std::abs(other.percent());
  };
  std::ranges::stable_sort(changes, larger);
  changes.resize(std::min(changes.size(), kMostShown));
  std::printf("%s", changes.empty() ? "" : "largest changes:\n");
  for (const price_change& change : changes) {
    const std::string percent =
        change.before > 0 ? qvn_format("%+.1f %%", change.percent()) : "from 0";
    std::printf("%10s  %s  %s -> %s  %s%s%s\n", percent.c_str(), change.line->code,
                price_text(change.before).c_str(), price_text(change.after).c_str(),
                change.column == 0 ? "" : kPrices[change.column], change.column == 0 ? "" : "  ",
                shown(qvn_or_empty(change.line->code_name)).c_str());
  }
}

void rate_against::write(std::FILE* file, const price_change& change) {
  constexpr int kDateLength = 10;
  const bool compares = change.what == kind::dearer || change.what == kind::cheaper;
  const std::string percent =
      compares && change.before > 0 ? qvn_format("%.1f", change.percent()) : "";
  (void)std::fprintf(file, "%s,%s,%s,%s,%s,%s,%s,%.*s\n", change.line->code,
                     quoted(change.line->code_name).c_str(),
                     kInFile[static_cast<std::size_t>(change.what)], kPrices[change.column],
                     price_text(change.before).c_str(), price_text(change.after).c_str(),
                     percent.c_str(), kDateLength, change.line->terms->effective.text);
}

void rate_against::report(std::FILE* changes) {
  reconcile();
  std::vector<price_change> written;
  job_.data->imports.look_through([&](const import_record& line) {
    const price_change change = judge(line);
    ++counts_[static_cast<std::size_t>(change.what)];
    if (change.what != kind::same) {
      written.push_back(change);
    }
    return true;
  });
  std::ranges::reverse(written);  // the list begins with the deck's last line
  if (changes) {
    (void)std::fputs("code,code_name,change,price,old,new,percent,effective_date\n", changes);
    std::ranges::for_each(written, [&](const price_change& change) { write(changes, change); });
  }
  print_counts();
  std::erase_if(written, [](const price_change& change) {
    return change.what != kind::dearer && change.what != kind::cheaper;
  });
  print_largest(std::move(written));
}
