/// qvn_rate_check from its command line to its end.

#include <cstdio>
#include <getopt.h>
#include <libpq-fe.h>

#include "rate_upload/deck_validation.h"
#include "tools/rate_check.h"
#include "tools/tool_main.h"

namespace {

constexpr const char* kUsage =
    "Usage: qvn_rate_check FORMAT FILE [--codes DECK.csv [--code-deck ID]] [--reimport FILE] "
    "[--encoding NAME] [--quiet]\n";

constexpr const char* kHelp =
    "Checks a rate file as qvn_web_helper checks it at an import, without a database.\n"
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
    "                     PostgreSQL, such as LATIN1, WIN1252 or SQL_ASCII; names are checked for\n"
    "                     UTF8 only, which is the default\n"
    "  -q, --quiet        do not print a line for each refused line\n"
    "  -h, --help         print this and exit\n"
    "  -V, --version      print the version and exit\n"
    "\n"
    "Prints the lines of the daemon's rate_import.log, how many lines are accepted and refused,\n"
    "by reason, the columns that the daemon knows and ignores, and what is wrong with the file as "
    "a\n"
    "whole, with its cure: no price column, byte order mark, UTF-16, other separators, quotes,\n"
    "carriage returns, other encodings, prices with several points, overlong lines. What an import "
    "does to the rates that are stored already (ending and\n"
    "deleting them) takes the database and is not checked.\n"
    "\n"
    "Dates are limited to 90 and 180 days from now in local time; run with the daemon's TZ,\n"
    "which is UTC as a rule, for the same answer on the last day.\n"
    "\n"
    "Exit status: 0 all lines are accepted and nothing is wrong, 1 some are refused or something "
    "is\n"
    "wrong, 2 nothing would be imported, or a file cannot be used.\n";

constexpr option kOptions[] = {
    {"codes", required_argument, nullptr, 'c'},    {"code-deck", required_argument, nullptr, 'd'},
    {"reimport", required_argument, nullptr, 'r'}, {"encoding", required_argument, nullptr, 'e'},
    {"quiet", no_argument, nullptr, 'q'},          {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},        {nullptr, 0, nullptr, 0}};

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

/// Reads the options. False when the program is to end at once with `status`.
bool read_options(int count, char** words, rate_check_options& options, tool_status& status) {
  for (int letter = 0;
       (letter = getopt_long(count, words, "c:d:r:e:qhV", kOptions, nullptr)) != -1;) {
    if (letter == 'c') {
      options.codes_path = optarg;
    } else if (letter == 'd') {
      options.code_deck_id = optarg;
    } else if (letter == 'r') {
      options.reimport_path = optarg;
    } else if (letter == 'e') {
      if (!take_encoding(optarg, options)) {
        status = tool_usage_error(kUsage);
        return false;
      }
    } else if (letter == 'q') {
      options.quiet = true;
    } else {
      status = tool_answer(letter, "qvn_rate_check", kUsage, kHelp);
      return false;
    }
  }
  return true;
}

tool_status run(int count, char** words) {
  rate_check_options options;
  tool_status status = kNothingToSay;
  if (!read_options(count, words, options, status)) {
    return status;
  }
  if (count - optind != 2) {
    return tool_usage_error(kUsage);
  }
  options.format = rate_date_format_index(words[optind]);
  options.deck_path = words[optind + 1];
  if (options.format == date_format::unsupported) {
    (void)std::fprintf(stderr, "qvn_rate_check: %s: %s\n", kDateFormatUnsupported, words[optind]);
    return tool_usage_error(kUsage);
  }
  return rate_check(options);
}

}  // namespace

int main(int count, char** words) {
  return tool_main("qvn_rate_check", [&] { return run(count, words); });
}
