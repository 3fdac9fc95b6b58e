/// qvn_rate_check from its command line to its end.

#include <cstdio>
#include <getopt.h>
#include <libpq-fe.h>

#include "base/qvn_text.h"
#include "rate_upload/deck_validation.h"
#include "tools/rate_check.h"
#include "tools/tool_main.h"

namespace {

constexpr const char* kUsage =
    "Usage: qvn_rate_check FORMAT FILE [--codes DECK.csv] [--code-deck ID] [--reimport FILE]\n"
    "         [--encoding NAME] [--quiet] [--against SECTION --rate-table ID [--changes FILE]\n"
    "         [--rate-end-date TEXT] [--reduplicate-rate-action N] [--code-deck-flag]\n"
    "         [--conf DIR]]\n";

constexpr const char* kHelp =
    "Checks a rate file as qvn_web_helper checks it at an import, without a database; with\n"
    "--against, also says what it would change in a rate table. Nothing is changed.\n"
    "\n"
    "  FORMAT             how the file writes dates: MM/DD/YYYY, YYYY-MM-DD, DD-MM-YYYY,\n"
    "                     MM-DD-YYYY, DD/MM/YYYY or YYYY/MM/DD, as in column rate_date_format\n"
    "  FILE               the rate file; - reads standard input\n"
    "  -c, --codes FILE   take code names and countries from this code deck, as with\n"
    "                     code_deck_flag 1: a CSV file whose header names the columns code and\n"
    "                     name, perhaps code_id, code_deck_id and country\n"
    "  -d, --code-deck ID the code deck to use, as in column rate_table_code_deck_id; otherwise\n"
    "                     any that has the code\n"
    "  -r, --reimport FILE  write the refused lines there, as into rate_reimport.csv\n"
    "  -e, --encoding NAME  the server takes names in this encoding: a client_encoding of\n"
    "                     PostgreSQL, such as LATIN1, WIN1252 or SQL_ASCII; names are checked\n"
    "                     for UTF8 only, which is the default\n"
    "  -q, --quiet        do not print a line for each refused line\n"
    "\n"
    "  -a, --against SECTION  compare with the stored rates of this database, a section of\n"
    "                     qvn_db_info.conf, in a read-only transaction\n"
    "  -t, --rate-table ID  the rate table, as in column rate_table_id\n"
    "  -w, --changes FILE write the codes whose prices change there, as CSV\n"
    "  -E, --rate-end-date TEXT, -R, --reduplicate-rate-action N, -F, --code-deck-flag\n"
    "                     as in the columns of these names; without: empty, 0, and 0\n"
    "  -C, --conf DIR     the daemon's folder, or its conf folder; the folder of this program\n"
    "                     when none is given\n"
    "\n"
    "  -h, --help         print this and exit\n"
    "  -V, --version      print the version and exit\n"
    "\n"
    "Prints the lines of the daemon's rate_import.log, how many lines are accepted and refused,\n"
    "by reason, the columns that the daemon knows and ignores, and what is wrong with the file as\n"
    "a whole, with its cure: no price column, byte order mark, UTF-16, other separators, quotes,\n"
    "carriage returns, other encodings, prices with several points, overlong lines.\n"
    "\n"
    "Dates are limited to 90 and 180 days from now in local time; run with the daemon's TZ,\n"
    "which is UTC as a rule, for the same answer on the last day.\n"
    "\n"
    "Exit status: 0 all lines are accepted and nothing is wrong, 1 some are refused or something\n"
    "is wrong, 2 nothing would be imported, or a file or the database cannot be used.\n";

constexpr option kOptions[] = {{"codes", required_argument, nullptr, 'c'},
                               {"code-deck", required_argument, nullptr, 'd'},
                               {"reimport", required_argument, nullptr, 'r'},
                               {"encoding", required_argument, nullptr, 'e'},
                               {"quiet", no_argument, nullptr, 'q'},
                               {"against", required_argument, nullptr, 'a'},
                               {"rate-table", required_argument, nullptr, 't'},
                               {"changes", required_argument, nullptr, 'w'},
                               {"rate-end-date", required_argument, nullptr, 'E'},
                               {"reduplicate-rate-action", required_argument, nullptr, 'R'},
                               {"code-deck-flag", no_argument, nullptr, 'F'},
                               {"conf", required_argument, nullptr, 'C'},
                               {"help", no_argument, nullptr, 'h'},
                               {"version", no_argument, nullptr, 'V'},
                               {nullptr, 0, nullptr, 0}};

/// Takes the name of an encoding; false, with a line, when PostgreSQL has none of that name.
bool take_encoding(const char* name, rate_check_options& options) {
  const int encoding = pg_char_to_encoding(name);
  if (encoding < 0) {
    (void)std::fprintf(stderr, "qvn_rate_check: PostgreSQL knows no encoding %s\n", name);
    return false;
  }
  options.names_are_utf8 = encoding == pg_char_to_encoding("UTF8");
  return true;
}

/// Takes an option of the comparison; false when there is none of that letter.
bool take_against(int letter, rate_check_options& options) {
  switch (letter) {
    case 'a':
      options.section = optarg;
      return true;
    case 't':
      options.job.rate_table_id = optarg;
      return true;
    case 'w':
      options.changes_path = optarg;
      return true;
    case 'E':
      options.job.rate_end_date = optarg;
      return true;
    case 'R':
      options.job.reduplicate_rate_action = qvn_number<int32_t>(optarg);
      return true;
    case 'F':
      options.job.code_deck_flag = 1;
      return true;
    case 'C':
      options.conf_folder = optarg;
      return true;
    default:
      return false;
  }
}

/// Takes any option; false when the program is to end at once with `status`.
bool take_option(int letter, rate_check_options& options, tool_status& status) {
  switch (letter) {
    case 'c':
      options.codes_path = optarg;
      return true;
    case 'd':
      options.job.rate_table_code_deck_id = optarg;
      return true;
    case 'r':
      options.reimport_path = optarg;
      return true;
    case 'q':
      options.quiet = true;
      return true;
    case 'e':
      status = kUnusable;
      return take_encoding(optarg, options);
    default:
      break;
  }
  const bool taken = take_against(letter, options);
  status = taken ? kNothingToSay : tool_answer(letter, "qvn_rate_check", kUsage, kHelp);
  return taken;
}

/// The column is a number: what reads otherwise names no rate table.
bool is_rate_table(const std::string& id) {
  return !id.empty() && id.front() != '0' && qvn_is_digit(id.c_str()) == 1;
}

/// Whether the options of the comparison are there together, and names come from one code deck.
bool make_sense(const rate_check_options& options) {
  const rate_upload_row& job = options.job;
  const bool compares = !options.section.empty();
  const bool needs_section = !job.rate_table_id.empty() || options.changes_path ||
                             !job.rate_end_date.empty() || job.reduplicate_rate_action != 0 ||
                             job.code_deck_flag == 1 || options.conf_folder;
  return compares
             ? is_rate_table(job.rate_table_id) && !(job.code_deck_flag == 1 && options.codes_path)
             : !needs_section;
}

tool_status run(int count, char** words) {
  rate_check_options options;
  tool_status status = kNothingToSay;
  for (int letter = 0;
       (letter = getopt_long(count, words, "c:d:r:e:qa:t:w:E:R:FC:hV", kOptions, nullptr)) != -1;) {
    if (!take_option(letter, options, status)) {
      return status;
    }
  }
  if (count - optind != 2 || !make_sense(options)) {
    return tool_usage_error(kUsage);
  }
  options.job.rate_date_format = rate_date_format_index(words[optind]);
  options.deck_path = words[optind + 1];
  if (options.job.rate_date_format == date_format::unsupported) {
    (void)std::fprintf(stderr, "qvn_rate_check: %s: %s\n", kDateFormatUnsupported, words[optind]);
    return tool_usage_error(kUsage);
  }
  return rate_check(options);
}

}  // namespace

int main(int count, char** words) {
  return tool_main("qvn_rate_check", [&] { return run(count, words); });
}
