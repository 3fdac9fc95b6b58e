/// qvn_price_check from its command line to its end.

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <getopt.h>
#include <string_view>

#include "base/qvn_time.h"
#include "tools/price_check.h"
#include "tools/price_rates.h"
#include "tools/tool_core.h"
#include "tools/tool_main.h"

namespace {

constexpr const char* kUsage =
    "Usage: qvn_price_check SECTION --trunk ID --side ingress|egress --rate-table ID\n"
    "         (--session SESSION_ID --day DATE | --number N --at TIME --seconds S [--ani A])\n"
    "         [--rate-date TIME] [--jurisdictions] [--local-rates] [--all-columns] [--conf DIR]\n";

constexpr const char* kHelp =
    "Shows why a call costs what it costs: prices it as a rerating of that day would, with the\n"
    "loaders and the pricing of qvn_web_helper, and shows each step. Nothing is written.\n"
    "\n"
    "  SECTION            the database's section of qvn_db_info.conf\n"
    "  -t, --trunk ID     the trunk, as in the job row\n"
    "  -s, --side SIDE    ingress (the customer's price) or egress (the carrier's)\n"
    "  -r, --rate-table ID  the rate table, as in the job row\n"
    "\n"
    "  -S, --session ID   a recorded call, with\n"
    "  -D, --day DATE     the day in whose table it is, YYYY-MM-DD\n"
    "\n"
    "  -n, --number N     a call that is made up, with\n"
    "  -T, --at TIME      when it begins, \"YYYY-MM-DD HH:MM:SS\" in UTC\n"
    "  -d, --seconds S    how long it takes\n"
    "  -a, --ani A        the calling number\n"
    "\n"
    "  -R, --rate-date TIME  the rates in force then, as a date of the trunk in the job row; "
    "without\n"
    "                     it those of the beginning of the day\n"
    "  -j, --jurisdictions  with update_us_jurisdiction 1 in the job row\n"
    "  -l, --local-rates  with update_local_rate 1\n"
    "  -c, --all-columns  show all columns of the CDR file, not only those that pricing writes\n"
    "  -C, --conf DIR     the daemon's folder, or its conf folder; the folder of this program "
    "when\n"
    "                     none is given\n"
    "  -h, --help         print this and exit\n"
    "  -V, --version      print the version and exit\n"
    "\n"
    "Days begin in local time; run with the daemon's TZ, which is UTC as a rule.\n"
    "\n"
    "Exit status: 0 the call has a price, 1 it has none, 2 it cannot be found out: configuration,\n"
    "connection, no such trunk or session.\n";

constexpr option kOptions[] = {{"trunk", required_argument, nullptr, 't'},
                               {"side", required_argument, nullptr, 's'},
                               {"rate-table", required_argument, nullptr, 'r'},
                               {"session", required_argument, nullptr, 'S'},
                               {"day", required_argument, nullptr, 'D'},
                               {"number", required_argument, nullptr, 'n'},
                               {"at", required_argument, nullptr, 'T'},
                               {"seconds", required_argument, nullptr, 'd'},
                               {"ani", required_argument, nullptr, 'a'},
                               {"rate-date", required_argument, nullptr, 'R'},
                               {"jurisdictions", no_argument, nullptr, 'j'},
                               {"local-rates", no_argument, nullptr, 'l'},
                               {"all-columns", no_argument, nullptr, 'c'},
                               {"conf", required_argument, nullptr, 'C'},
                               {"help", no_argument, nullptr, 'h'},
                               {"version", no_argument, nullptr, 'V'},
                               {nullptr, 0, nullptr, 0}};

/// A date after the first of the epoch, perhaps with a time of day, in UTC; none for anything else.
std::optional<int64_t> moment(const char* text) {
  tm date{};
  const char* end = strptime(text, "%Y-%m-%d", &date);
  if (end && *end == ' ') {
    end = strptime(end, " %H:%M:%S", &date);
  }
  const int day = date.tm_mday;
  const int64_t time = timegm(&date);
  const bool is_date = end && *end == '\0' && date.tm_mday == day && time >= kSecondsPerDay;
  return is_date ? std::optional<int64_t>(time) : std::nullopt;
}

/// Whether the text can stand in the daemon's statements, and in a record, as it is.
bool is_plain(std::string_view text) {
  return text.find_first_of("'\",;\\?") == std::string_view::npos && price_shown(text) == text;
}

bool take_side(price_check_options& options, std::string_view text) {
  options.side.reset();
  for (const call_side side : {call_side::ingress, call_side::egress}) {
    if (text == side_name(side)) {
      options.side = side;
    }
  }
  return options.side.has_value();
}

bool take_moment(std::optional<int64_t>& taken, const char* text) {
  taken = moment(text);
  return taken.has_value();
}

bool take_seconds(int64_t& taken, const char* text) {
  char* rest = nullptr;
  taken = std::strtol(text, &rest, 10);
  return taken > 0 && *rest == '\0';
}

bool take_text(std::string& taken, const char* text) {
  taken = text;
  return is_plain(text);
}

/// Takes an option's value; false when it makes no sense.
bool take_option(int letter, const char* value, price_check_options& options) {
  switch (letter) {
    case 't':
      return take_text(options.trunk_id, value);
    case 's':
      return take_side(options, value);
    case 'r':
      return take_text(options.rate_table_id, value);
    case 'S':
      options.session_id = value;
      return true;
    case 'D':
      return take_moment(options.day, value);
    case 'n':
      return take_text(options.number, value);
    case 'T':
      return take_moment(options.at, value);
    case 'd':
      return take_seconds(options.seconds, value);
    case 'a':
      return take_text(options.ani, value);
    case 'R':
      return take_moment(options.rate_date, value);
    case 'j':
      return options.jurisdictions = true;
    case 'l':
      return options.local_rates = true;
    default:
      return options.all_columns = true;
  }
}

/// What is missing of a recorded call or of one that is made up, or null.
const char* missing_of_call(const price_check_options& options) {
  const bool is_recorded = !options.session_id.empty();
  if (is_recorded == !options.number.empty()) {
    return "either --session or --number";
  }
  if (is_recorded) {
    return options.day ? nullptr : "--day";
  }
  if (!options.at) {
    return "--at";
  }
  return options.seconds == 0 ? "--seconds" : nullptr;
}

/// What is missing on the command line, or null.
const char* missing_of(const price_check_options& options) {
  if (options.section.empty()) {
    return "the section";
  }
  if (options.trunk_id.empty()) {
    return "--trunk";
  }
  if (!options.side) {
    return "--side";
  }
  return options.rate_table_id.empty() ? "--rate-table" : missing_of_call(options);
}

tool_status run(int count, char** words) {
  price_check_options options;
  const char* folder = nullptr;
  for (int letter = 0; (letter = getopt_long(count, words, "t:s:r:S:D:n:T:d:a:R:jlcC:hV", kOptions,
                                             nullptr)) != -1;) {
    if (letter == 'h' || letter == 'V' || letter == '?') {
      return tool_answer(letter, "qvn_price_check", kUsage, kHelp);
    }
    if (letter == 'C') {
      folder = optarg;
    } else if (!take_option(letter, optarg, options)) {
      (void)std::fprintf(stderr, "qvn_price_check: -%c cannot be \"%s\"\n", letter,
                         price_shown(optarg).c_str());
      return kUnusable;
    }
  }
  options.section = count - optind == 1 ? words[optind] : "";
  if (const char* const missing = missing_of(options)) {
    (void)std::fprintf(stderr, "qvn_price_check: needs %s\n", missing);
    return tool_usage_error(kUsage);
  }
  const tool_core core(folder);
  return price_check(options);
}

}  // namespace

int main(int count, char** words) {
  return tool_main("qvn_price_check", [&] { return run(count, words); });
}
