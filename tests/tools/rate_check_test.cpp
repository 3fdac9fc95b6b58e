// qvn_rate_check: what it prints, writes and answers, and that the daemon says the same.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "e2e/portal_world.h"
#include "support/shell.h"

namespace {

using support::Ending;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kDeck =
    "Code,effective_date,rate,code_name\n"
    "44,2024-03-01,0.1,UK\n"
    "\n"
    "44,2024-03-02,0.2,UK\n"
    "4x,2024-03-01,0.2,\n"
    "4y,2024-03-01,0.2,\n"
    "33,2024-03-01,0.2\n"
    "442,2024-03-01,0.2,London\n"
    "34,,1,\n";
constexpr const char* kMessages =
    "Line 4 : repeating code, 44\n"
    "Line 5 : code invalid, 4x\n"
    "Line 6 : code invalid, 4y\n"
    "Line 7 : not matching rate header\n"
    "Line 9 : missing rate or code or effective date\n";
constexpr const char* kSummary =
    "deck.csv: 7 lines, 2 accepted, 5 refused\n"
    "       2  code invalid\n"
    "       1  missing rate or code or effective date\n"
    "       1  not matching rate header\n"
    "       1  repeating code\n";
constexpr const char* kNote = "Line 8 : code not matching system code deck, 442\n";

/// A folder with the deck, a short one without faults, and code decks.
class RateCheck : public testing::Test {
 protected:
  RateCheck() : folder_("") {
    write("deck.csv", kDeck);
    write("good.csv", "code,effective_date\n44,03/01/2024\n");
    write("bad.csv", "code,rate\n44,1\n");
    write("codes.csv", "code,country,name\n44,UK,Great Britain\n");
    write("no_name.csv", "code,country\n44,UK\n");
    write("short.csv", "code,country,name\n44,UK,Great Britain\n\n49,Germany\n");
    write("two.csv", "name,code,code_deck_id\nUK,44,1\nLondon,442,2\n");
  }
  void write(const std::string& name, const std::string& text) const {
    support::write_file(folder_.path() / name, text);
  }

  support::TempDir folder_;
};

TEST_F(RateCheck, PrintsMessagesAndSummaryAndAnswersByItsStatus) {
  struct Case {
    const char* command;
    int status;
    std::string out;
    const char* err;
  };
  const std::string all = std::string(kMessages) + kSummary;
  const Case cases[] = {
      {"qvn_rate_check YYYY-MM-DD deck.csv", 1, all, ""},
      {"qvn_rate_check --quiet yyyy-mm-dd deck.csv", 1, kSummary, ""},
      {"qvn_rate_check MM/DD/YYYY good.csv", 0, "good.csv: 1 lines, 1 accepted, 0 refused\n", ""},
      {"cat good.csv | qvn_rate_check MM/DD/YYYY -", 0,
       "standard input: 1 lines, 1 accepted, 0 refused\n", ""},
      {"qvn_rate_check MM/DD/YYYY none.csv", 2, "",
       "none.csv: Open rate file failed: No such file or directory\n"},
      {"mkfifo pipe; qvn_rate_check MM/DD/YYYY pipe", 2, "",
       "pipe: Open rate file failed: not a plain file; use - for a pipe\n"},
      {"f=$(printf '\\033c'); printf 'code,effective_date\\n4\\033[2J,x\\n' >$f;"
       "qvn_rate_check MM/DD/YYYY $f",
       1,
       "Line 2 : code invalid, 4?[2J\n?c: 1 lines, 0 accepted, 1 refused\n       1  code invalid\n",
       ""},
      {"qvn_rate_check MM/DD/YYYY bad.csv", 2, "", "bad.csv: Import header invalid\n"},
      {"qvn_rate_check MM/DD/YYYY /dev/fd/9 9<.", 2, "", "/dev/fd/9: Import header invalid\n"},
      {"qvn_rate_check MM/DD/YYYY good.csv -r ./good.csv; s=$?; grep -c 44 good.csv; exit $s", 2,
       "1\n", "./good.csv: Create reimport rate file failed: it is the rate file itself\n"},
      {"qvn_rate_check MM/DD/YYYY good.csv -r none/x", 2, "",
       "none/x: Create reimport rate file failed: No such file or directory\n"},
      {"qvn_rate_check YYYY-MM-DD deck.csv -qr /dev/full", 2, kSummary,
       "/dev/full: writing failed\n"},
      {"qvn_rate_check YYYY-MM-DD deck.csv >/dev/full", 2, "",
       "qvn_rate_check: writing to standard output failed\n"},
      {"qvn_rate_check MM/DD/YYYY good.csv --codes none.csv", 2, "",
       "none.csv: No such file or directory\n"},
      {"qvn_rate_check MM/DD/YYYY good.csv --codes no_name.csv", 2, "",
       "no_name.csv:1: the header must name the columns code and name\n"},
      {"qvn_rate_check MM/DD/YYYY good.csv --codes short.csv", 2, "",
       "short.csv:4: fewer columns than the header\n"},
      {"qvn_rate_check MM/DD/YYYY good.csv --codes /dev/null", 2, "", "/dev/null:0: no header\n"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.command);
    const Ending ending = support::shell(folder_.path(), test.command);
    EXPECT_EQ(ending.status, test.status);
    EXPECT_EQ(ending.out, test.out);
    EXPECT_EQ(ending.err, test.err);
  }
}

TEST_F(RateCheck, AnswersAWrongCommandLineWithItsUsage) {
  for (const char* arguments : {"", "MM/DD/YYYY", "MM/DD/YYYY good.csv more", "--unheard-of",
                                "MM/DD/YYYY good.csv --codes", "DDMMYYYY good.csv"}) {
    const Ending ending =
        support::shell(folder_.path(), std::string("qvn_rate_check ") + arguments);
    EXPECT_EQ(ending.status, 2) << arguments;
    EXPECT_EQ(ending.out, "") << arguments;
    EXPECT_THAT(ending.err, HasSubstr("Usage: qvn_rate_check FORMAT FILE")) << arguments;
  }
  EXPECT_THAT(support::shell(folder_.path(), "qvn_rate_check --help").out,
              StartsWith("Usage: qvn_rate_check"));
  EXPECT_THAT(support::shell(folder_.path(), "qvn_rate_check --version").out,
              StartsWith("qvn_rate_check V1"));
}

TEST_F(RateCheck, NotesCodesThatOnlyAShorterOneOfTheCodeDeckCovers) {
  struct Case {
    const char* options;
    bool noted;
  };
  for (const Case& test :
       {Case{"--codes codes.csv", true}, Case{"--codes two.csv", true},
        Case{"--codes codes.csv --code-deck 7", true}, Case{"--codes two.csv --code-deck 2", false},
        Case{"--codes two.csv --code-deck 1", true}}) {
    const Ending ending = support::shell(
        folder_.path(), std::string("qvn_rate_check YYYY-MM-DD deck.csv ") + test.options);
    EXPECT_EQ(support::count_of(ending.out, kNote), test.noted) << test.options;
    EXPECT_EQ(support::count_of(ending.out, ", 1 not matching the code deck\n"), test.noted)
        << ending.out;
  }
}

TEST_F(RateCheck, ShowsABarForALargeFileOnATerminalOnly) {
  std::string deck = "code,effective_date,rate\n";
  for (int code = 0; deck.size() < 5'000'000; ++code)
    deck += std::to_string(code) + ",2024-03-01,0.1234567\n";
  write("large.csv", deck);
  const std::string command = "qvn_rate_check YYYY-MM-DD large.csv";
  EXPECT_EQ(support::shell(folder_.path(), command).err, "");
  const std::string shown =
      support::shell(folder_.path(), "script -qec '" + command + "' /dev/null").out;
  EXPECT_THAT(shown, HasSubstr("\r[####################"));
  EXPECT_THAT(shown, HasSubstr("%\r\033[Klarge.csv: "));
}

/// The daemon's own import of the same deck, with the portal's code deck.
TEST(RateCheckDaemon, SaysCountsAndWritesWhatAnImportDoes) {
  const std::string deck = std::string(kDeck) + "1,2024-02-30,.5,\n2," + e2e::day(92) + ",1,\n" +
                           "3,2024-03-01,1,\"quoted\"\n" + std::string(1100, '7') +
                           ",2024-03-01,1,\n";
  auto daemon = e2e::daemon_for({"rate_check"});
  support::Session portal = e2e::cluster().connect("rate_check");
  portal.query(
      "INSERT INTO code (code, code_deck_id, country, name)"
      " VALUES ('44', 3, 'UK', 'Great Britain'), ('442', 4, 'UK', 'London')");
  support::TempDir folder("");
  const std::string id = e2e::submit(portal, daemon->path(), deck, "7",
                                     {{"code_deck_flag", "1"}, {"rate_table_code_deck_id", "3"}});
  daemon->start();
  const std::string outcome = e2e::outcome(portal, id);
  const std::string results = portal.value("SELECT result_file_path FROM rate_upload_task");

  const Ending ending =
      support::shell(folder.path(),
                     "printf 'code_id,code,code_deck_id,country,name\\n1,44,3,UK,Great Britain\\n"
                     "2,442,4,UK,London\\n' >codes.csv; qvn_rate_check YYYY-MM-DD " +
                         (daemon->path() / "deck.csv").string() +
                         " --codes codes.csv --code-deck 3 --reimport reimport.csv");
  EXPECT_EQ(ending.status, 1);
  const std::string log = support::read_file(results + "rate_import.log");
  EXPECT_THAT(log, HasSubstr(kNote));
  const size_t summary = ending.out.find(daemon->path().string());
  EXPECT_EQ(ending.out.substr(0, summary), log);
  EXPECT_EQ(support::read_file(folder.path() / "reimport.csv"),
            support::read_file(results + "rate_reimport.csv"));
  unsigned lines = 0, accepted = 0, refused = 0;
  EXPECT_EQ(sscanf(ending.out.c_str() + ending.out.find(": ", summary),
                   ": %u lines, %u accepted, %u refused", &lines, &accepted, &refused),
            3);
  EXPECT_EQ(outcome, "4 Insert: " + std::to_string(accepted) +
                         ", Delete: 0, Update: 0, Error: " + std::to_string(refused));
  EXPECT_EQ(lines, accepted + refused);
}

}  // namespace
