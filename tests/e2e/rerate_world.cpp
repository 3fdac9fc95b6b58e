#include "e2e/rerate_world.h"

#include <gtest/gtest.h>
#include <sstream>

namespace e2e {
namespace {

using support::Session;

/// The columns that a rating writes, in the order of `priced`.
const char* const kPriced[2][10] = {
    {"ingress_client_rate", "ingress_client_cost", "ingress_client_bill_time",
     "ingress_bill_minutes", "ingress_rate_id", "orig_code", "orig_code_name", "orig_country",
     "ingress_rate_type", "ingress_rate_effective_date"},
    {"egress_rate", "egress_cost", "egress_bill_time", "egress_bill_minutes", "egress_rate_id",
     "term_code", "term_code_name", "term_country", "egress_rate_type",
     "egress_rate_effective_date"}};

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, separator);)
    parts.push_back(part);
  return parts;
}

/// Where two lines differ, a column a line.
std::string differences(const std::string& actual, const std::string& expected) {
  const std::vector<std::string> a = split(actual, '?'), e = split(expected, '?');
  std::string text;
  for (size_t i = 0; i < std::max(a.size(), e.size()); i++) {
    const std::string is = i < a.size() ? a[i] : "(none)";
    const std::string should = i < e.size() ? e[i] : "(none)";
    if (is != should)
      text += std::to_string(i) + " " + (i < 130 ? cdr_columns()[i] : "") + ": " + is +
              // NOLINTNEXTLINE(performance-inefficient-string-concatenation)
              " instead of " + should + "\n";
  }
  return text;
}

}  // namespace

Call call(const std::string& columns) {
  Call all = e2e::columns(
      "session_id=s start_time_of_date=1772366400000000 routing_digits=442012345678"
      " call_duration=60 ingress_id=1 egress_id=1 translation_ani=12125550001 " +
      columns);
  all["time"] = "2026-03-01 12:01:00+00";
  return all;
}

void store_calls(Session& portal, const std::string& day, const std::vector<Call>& calls) {
  const std::string table = "client_cdr" + day;
  std::string text = "CREATE TABLE IF NOT EXISTS " + table + " (LIKE client_cdr INCLUDING ALL);";
  for (const Call& c : calls) {
    Columns columns;
    for (const auto& [name, value] : c)
      columns[name] = "'" + value + "'";
    text += insertion(table, columns) + ";";
  }
  portal.query(text);
}

const char* name_of(Side side) {
  return side == Side::ingress ? "ingress" : "egress";
}

Call priced(Call call, Side side, const std::string& columns) {
  size_t i = 0;
  for (const std::string& value : split(columns, '|'))
    call[kPriced[side == Side::egress][i++]] = value;
  return call;
}

const std::vector<std::string>& cdr_columns() {
  static const auto* const columns = [] {
    auto* names = new std::vector<std::string>;
    for (const support::Row& row : cluster()
                                       .connect("template_portal")
                                       .query("SELECT column_name FROM information_schema.columns"
                                              " WHERE table_name = 'client_cdr' AND"
                                              " column_name <> 'time' ORDER BY ordinal_position"))
      names->push_back(row[0]);
    return names;
  }();
  return *columns;
}

std::string line(const Call& call, bool q850) {
  std::string text;
  for (size_t i = 0; i < (q850 ? 130U : 128U); i++) {
    const auto found = call.find(cdr_columns()[i]);
    const bool empty = found == call.end() || found->second.empty();
    text += (i == 0 ? "" : "?") + (empty ? "NULL" : found->second);
  }
  return text + "\n";
}

std::string lines(const std::vector<Call>& calls) {
  std::string text;
  for (const Call& c : calls)
    text += line(c);
  return text;
}

void expect_file(const std::filesystem::path& path, const std::string& expected) {
  const std::string actual = support::read_file(path);
  EXPECT_TRUE(std::filesystem::is_regular_file(path)) << path;
  if (actual == expected)
    return;
  const std::vector<std::string> a = split(actual, '\n'), e = split(expected, '\n');
  for (size_t i = 0; i < std::min(a.size(), e.size()); i++) {
    if (a[i] != e[i]) {
      ADD_FAILURE() << path << " line " << i + 1 << "\n" << differences(a[i], e[i]);
      return;
    }
  }
  EXPECT_EQ(a.size(), e.size()) << path << " has lines too few or too many";
  EXPECT_TRUE(actual == expected) << path << " differs";
}

std::string rate(const std::string& columns) {
  const char* const ordinary =
      "rate_table_id=1 code='44' code_name='UK' country='Britain' rate=0.1 seconds=60 interval=6"
      " min_time=0 grace_time=0 setup_fee=0 effective_date='2026-01-01T00:00:00Z' ";
  return insertion("rate", e2e::columns(ordinary + columns)) + ";";
}

std::string rate_table(const std::string& id, const std::string& columns) {
  return insertion("rate_table", e2e::columns("name='deck' rate_table_id=" + id + " " + columns)) +
         ";";
}

std::string trunk(const std::string& id, const std::string& alias, const std::string& decimals,
                  const std::string& rounding) {
  return insertion("resource", {{"resource_id", id},
                                {"alias", "'" + alias + "'"},
                                {"rate_decimal", decimals},
                                {"rate_rounding", rounding}}) +
         ";";
}

std::string rerate(Session& portal, const std::string& columns) {
  const std::string day = std::string("from_time=") + kMarch1 + " to_time=1772409599 ";
  return portal.value(insertion("rerate_cdr_task", e2e::columns(day + columns)) + " RETURNING id");
}

std::string rerated(Session& portal, const std::string& id) {
  return job_end(portal, "rerate_cdr_task", id, "err_code || ' ' || status || ' ' || progress");
}

std::string listed_files(Session& portal, const std::string& id) {
  return portal.value("SELECT cdr_file FROM rerate_cdr_task WHERE id = " + id);
}

std::filesystem::path cdr_file(Session& portal, const std::string& id, const std::string& trunk,
                               const std::string& date) {
  return portal.value("SELECT cdr_file_path FROM rerate_cdr_task WHERE id = " + id) + id + "-" +
         trunk + "-" + date + ".cdr";
}

std::filesystem::path output_folder(const std::filesystem::path& cdr_directory,
                                    const std::string& database, const std::string& id) {
  std::filesystem::path folder;
  // A job that began before midnight lies under yesterday.
  for (const int days : {-1, 0}) {
    std::string date = day(days);
    std::erase(date, '-');
    folder = cdr_directory / date / ("127.0.0.1-" + database) / id;
    if (std::filesystem::exists(folder))
      break;
  }
  return folder;
}

}  // namespace e2e
