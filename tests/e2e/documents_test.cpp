// The documents for portal developers and operators: their examples come to the end that they show,
// and their tables name what the code knows, no more and no less.
#include <cctype>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <sstream>

#include "base/qvn_conf_file.h"
#include "core/qvn_core_ctrl.h"
#include "core/qvn_settings.h"
#include "db/qvn_db_conf.h"
#include "e2e/page_runner.h"
#include "e2e/portal_world.h"
#include "rate_upload/qvn_rate_upload.h"
#include "rerate/qvn_rerate.h"

namespace {

using support::Block;
using support::Session;

std::string document(const std::string& name) {
  return support::read_file(QVN_SOURCE_DIR "/docs/" + name);
}

/// Runs a page's blocks, in their order, by a daemon and its database `portal`.
class PageRunner {
 public:
  PageRunner() : daemon_(e2e::daemon_for({"portal"})), portal_(e2e::cluster().connect("portal")) {
    portal_.query(
        "CREATE TABLE step (job_table text, step text);"
        "CREATE FUNCTION keep_step() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN"
        " INSERT INTO step VALUES (TG_TABLE_NAME, OLD.status || '>' || NEW.status);"
        " RETURN NEW; END $$;"
        "CREATE TRIGGER keep AFTER UPDATE ON rate_upload_task FOR EACH ROW EXECUTE FUNCTION "
        "keep_step();"
        "CREATE TRIGGER keep AFTER UPDATE ON rerate_cdr_task FOR EACH ROW EXECUTE FUNCTION "
        "keep_step()");
    daemon_->start();
  }
  ~PageRunner() { e2e::drop_database("portal"); }
  PageRunner(const PageRunner&) = delete;
  PageRunner& operator=(const PageRunner&) = delete;

  void run(const std::string& page) {
    int compared = 0;
    for (const Block& block : support::blocks(page)) {
      if (block.kind == "text") {
        runner_.expect_shown(block.text);
        ++compared;
        continue;
      }
      runner_.run_and_wait(block);
    }
    EXPECT_GT(compared, 2);
  }

  /// The changes of status that the jobs of a table went through: "0>1", "1>2", ...
  std::vector<std::string> steps(const std::string& table) {
    return values("SELECT DISTINCT step FROM step WHERE job_table = '" + table + "'");
  }

  std::vector<std::string> columns_of(const std::string& table) {
    return values("SELECT attname FROM pg_attribute WHERE attnum > 0 AND attrelid = '" + table +
                  "'::regclass ORDER BY attnum");
  }

  /// A job for a deck of its own, for the rate table and in the folder named after the date format.
  void submit(const std::string& deck, const std::string& format) {
    const std::string table = std::to_string(100 + jobs_.size());
    const std::filesystem::path folder = daemon_->path() / "upload" / table;
    std::filesystem::create_directory(folder);
    jobs_[format] =
        e2e::submit(portal_, folder, deck, table, {{"rate_date_format", "'" + format + "'"}});
  }

  /// A result file of an import.
  std::string result(const std::string& id, const std::string& file) {
    return support::read_file(
        portal_.value("SELECT result_file_path FROM rate_upload_task WHERE id = " + id) + file);
  }

  /// What became of the lines of the deck in that format, by their numbers, which are their codes:
  /// "stored LINE DATE" or the message.
  std::string outcome_of(const std::string& format) {
    const std::string id = jobs_.at(format);
    std::map<long, std::string> lines;
    for (const support::Row& row :
         portal_.query("SET timezone = 'UTC'; SELECT code, effective_date FROM rate"
                       " JOIN rate_upload_task USING (rate_table_id) WHERE id = " +
                       id))
      lines[std::stol(row[0])] = "stored " + row[0] + " " + row[1] + "\n";
    std::istringstream log(result(id, "rate_import.log"));
    for (std::string line; std::getline(log, line);)
      lines[std::stol(line.substr(5))] = line + "\n";
    std::string all;
    for (const auto& [number, line] : lines)
      all += line;
    return all;
  }

  void wait_for_jobs() const { runner_.wait_for_jobs(); }

 private:
  std::vector<std::string> values(const std::string& sql) {
    std::vector<std::string> all;
    for (const support::Row& row : portal_.query(sql))
      all.push_back(row[0]);
    return all;
  }

  std::unique_ptr<support::DaemonHarness> daemon_;
  Session portal_;
  e2e::PageRunner runner_{*daemon_, "portal", e2e::Widths::free};
  std::map<std::string, std::string> jobs_;  ///< ids of submitted decks by date format
};

/// The steps that a page's state diagram shows, its states called `state` and their number.
std::vector<std::string> drawn_steps(const std::string& page, char state) {
  std::vector<std::string> all;
  std::istringstream lines(page);
  for (std::string line; std::getline(lines, line);)
    if (line.size() >= 10 && line[2] == state && line.substr(4, 5) == " --> " && line[9] == state)
      all.push_back({line[3], '>', line[10]});
  return all;
}

/// Column `column` (from 1) of the table rows of a section, without backticks.
std::vector<std::string> cells(const std::string& page, const std::string& heading, size_t column) {
  std::vector<std::string> all;
  const size_t begin = page.find("\n" + heading + "\n");
  EXPECT_NE(begin, std::string::npos) << heading;
  std::istringstream lines(page.substr(begin + 1, page.find("\n#", begin + 1) - begin));
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("| `"))
      continue;
    all.push_back(support::cells(line)[column - 1]);
    std::erase(all.back(), '`');
  }
  return all;
}

/// The files of the source tree whose text may name keys or texts of the documents.
std::vector<std::string> sources(const std::string& folder) {
  std::vector<std::string> all;
  for (const auto& entry :
       std::filesystem::recursive_directory_iterator(QVN_SOURCE_DIR "/src/" + folder))
    if (entry.path().extension() == ".cpp" || entry.path().extension() == ".h")
      all.push_back(support::read_file(entry.path()));
  EXPECT_FALSE(all.empty());
  return all;
}

/// String literals without escapes in the text, from `begin` to `end`.
std::vector<std::string> literals(const std::string& text, size_t begin = 0,
                                  size_t end = std::string::npos) {
  std::vector<std::string> all;
  end = std::min(end, text.size());
  for (size_t open = text.find('"', begin); open < end;) {
    const size_t close = text.find('"', open + 1);
    if (close == std::string::npos)
      break;
    all.push_back(text.substr(open + 1, close - open - 1));
    open = text.find('"', close + 1);
  }
  return all;
}

TEST(Documents, JobTablesShowWhatHappens) {
  const std::string page = document("job-tables.md");
  PageRunner runner;
  runner.run(page);
  EXPECT_THAT(drawn_steps(page, 'S'), testing::IsSupersetOf(runner.steps("rate_upload_task")));
  EXPECT_THAT(drawn_steps(page, 'R'), testing::IsSupersetOf(runner.steps("rerate_cdr_task")));
  EXPECT_EQ(cells(page, "## Imports: `rate_upload_task`", 1),
            runner.columns_of("rate_upload_task"));
  EXPECT_EQ(cells(page, "## Reratings: `rerate_cdr_task`", 1),
            runner.columns_of("rerate_cdr_task"));
}

TEST(Documents, BillingExplainsCalls) {
  PageRunner().run(document("billing.md"));
}

TEST(Documents, RateFilesAreTakenAsShown) {
  const std::string page = document("rate-file-format.md");
  PageRunner runner;
  runner.run(page);
  std::string log;
  for (const std::string& message : cells(page, "## Messages", 1))
    if (message.find("system code deck") == std::string::npos)
      log += message + "\n";
  EXPECT_EQ(runner.result("4", "rate_import.log"), log);
  // A deck of dates for each format.
  const std::vector<std::string> formats = cells(page, "## Dates", 1),
                                 dates = cells(page, "## Dates", 2),
                                 results = cells(page, "## Dates", 3);
  const size_t examples = 6;  // the rows of the table of formats
  std::map<std::string, std::string> decks, shown;
  for (size_t i = examples; i < formats.size(); i++) {
    std::string& deck = decks[formats[i]];
    const long line = std::count(deck.begin(), deck.end(), '\n') + 2;
    deck += std::to_string(line) + ",0.1," + dates[i] + "\n";
    shown[formats[i]] += std::isdigit(results[i][0])
                             ? "stored " + std::to_string(line) + " " + results[i] + "\n"
                             : "Line " + std::to_string(line) + " : " + results[i] + "\n";
  }
  ASSERT_EQ(decks.size(), examples);
  for (const auto& [format, deck] : decks)
    runner.submit("code,rate,effective_date\n" + deck, format);
  runner.wait_for_jobs();
  for (const auto& [format, lines] : shown)
    EXPECT_EQ(runner.outcome_of(format), lines) << format;
}

TEST(Documents, ScalingTellsWhatTwoDaemonsOnOneDatabaseDo) {
  auto first = e2e::daemon_for({"shared"});
  support::DaemonHarness second;
  second.write_databases(e2e::cluster().port(), {"shared"});
  Session portal = e2e::cluster().connect("shared"), other = e2e::cluster().connect("shared");
  const std::string id =
      e2e::submit(portal, first->path(), "code,rate,effective_date\n44,0.1,2026-03-01\n", "1");
  // While its row is locked the job stays at status 0, as it does for a moment in each poll.
  portal.query("BEGIN; SELECT FROM rate_upload_task FOR UPDATE");
  for (support::DaemonHarness* const daemon : {first.get(), &second}) {
    daemon->start();
    EXPECT_TRUE(daemon->wait_log("Added 127.0.0.1-shared rate upload task " + id));
  }
  EXPECT_TRUE(support::wait_until(
      [&] { return e2e::waiting(other, "UPDATE rate_upload_task", "pid") == "2"; }));
  portal.query("COMMIT");
  for (const support::DaemonHarness* const daemon : {first.get(), &second})
    EXPECT_TRUE(daemon->wait_log("rate upload task " + id + " have been completed, Insert: 1(1)"));
  EXPECT_EQ(portal.value("SELECT count(*) FROM rate WHERE end_date IS NULL"), "2");
}

using conf_pairs = std::vector<std::string>;
conf_pairs* g_pairs = nullptr;  // a callback of the reader has no context

TEST(Documents, ConfigurationFilesAreReadAsShown) {
  const std::vector<Block> shown = support::blocks(document("configuration.md"));
  ASSERT_EQ(shown.size(), 2U);
  const support::TempDir folder("");
  support::write_file(folder.path() / "conf", shown[0].text);
  conf_pairs pairs;
  g_pairs = &pairs;
  EXPECT_EQ(load_conf_helper((folder.path().string() + "/").c_str(), "conf", "example",
                             [](const char* key, const char* value) {
                               g_pairs->push_back(std::string(key) + " = " + value);
                               return 0;
                             },
                             nullptr, nullptr, 0),
            0);
  std::string text;
  for (const std::string& pair : pairs)
    text += pair + "\n";
  EXPECT_EQ(text, shown[1].text);
}

/// The settings as they are before a file is read, with all modules that have some.
class Settings : public testing::Test {
 protected:
  Settings() {
    g_core_ctrl = new qvn_core_ctrl;
    g_core_ctrl->install_dir = "/opt/qvn_web_helper";
    g_core_ctrl->log_level = 7;                   // by main
    g_core_ctrl->max_log_size = 307200U * 1024U;  // the log's own while this is 0
    EXPECT_EQ(qvn_default_conf_init() | qvn_rerate_init() | qvn_rate_upload_init(), 0);
  }
  ~Settings() override {
    (void)qvn_rerate_uninit();
    (void)qvn_rate_upload_uninit();
    delete g_core_ctrl;
    g_core_ctrl = nullptr;
  }

  static std::string stored() {
    std::ostringstream all;
    const qvn_core_ctrl& c = *g_core_ctrl;
    all << c.log_level << ' ' << c.max_log_size << ' ' << c.cli_listen_ip << ' '
        << c.cli_listen_port << ' ' << c.cli_connection_limit << ' ' << c.cli_connection_expires
        << ' ' << c.cli_login_user << ' ' << c.cli_login_pwd << ' ' << c.max_rerate_task << ' '
        << c.max_rate_upload_task << ' ' << qvn_rerate_cdr_directory() << ' '
        << qvn_rate_upload_result_directory();
    return all.str();
  }
};

struct Section {
  const char* heading;
  conf_callback read;
};

int32_t read_database(const char* key, const char* value) {
  const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
  return read_db_config(key, value);
}

const Section kSections[] = {
    {"### Section `general`", read_general_config},
    {"### Section `CLI`", read_cli_config},
    {"### Section `rerate`", read_rerate_config},
    {"### Section `rate_upload`", read_rate_upload_config},
    {"## Database list: `conf/qvn_db_info.conf`", read_database},
};

TEST_F(Settings, DocumentNamesEveryKey) {
  const std::string page = document("configuration.md");
  std::set<std::string> words;
  for (const std::string& source : sources(""))
    for (const std::string& text : literals(source))
      words.insert(text);
  int known = 0;
  for (const Section& section : kSections) {
    const std::vector<std::string> keys = cells(page, section.heading, 1);
    for (const std::string& word : words) {
      // A handler ignores what it does not know; an empty value it refuses, a good one it stores.
      const std::string before = stored();
      const bool is_key = section.read(word.c_str(), "") != 0 ||
                          (section.read(word.c_str(), "3"), stored() != before);
      EXPECT_EQ(is_key, std::count(keys.begin(), keys.end(), word) == 1) << section.heading << word;
      known += is_key;
    }
  }
  EXPECT_EQ(known, 17) << "keys are no longer literals of the source, or there are new ones";
}

TEST_F(Settings, DocumentTellsRangesAndDefaults) {
  const std::string page = document("configuration.md");
  const std::string sample = support::read_file(QVN_SOURCE_DIR "/conf/qvn_web_helper.conf");
  int ranges = 0;
  for (const Section& section : kSections) {
    const std::vector<std::string> keys = cells(page, section.heading, 1),
                                   range = cells(page, section.heading, 3),
                                   defaults = cells(page, section.heading, 4),
                                   bad = cells(page, section.heading, 5);
    for (size_t i = 0; i < keys.size(); i++) {
      SCOPED_TRACE(keys[i]);
      const std::string before = stored();
      if (defaults[i].find(' ') == std::string::npos && defaults[i] != "none") {
        EXPECT_EQ(section.read(keys[i].c_str(), defaults[i].c_str()), 0);
        EXPECT_EQ(stored(), before) << "another default";
        EXPECT_THAT(sample, testing::HasSubstr("efault " + defaults[i]));
      }
      long lowest = 0, highest = 0;
      if (sscanf(range[i].c_str(), "%ld to %ld", &lowest, &highest) != 2 ||
          keys[i] == "db_listen_port")
        continue;
      ++ranges;
      EXPECT_THAT(sample, testing::HasSubstr("ange " + range[i]));
      const auto takes = [&](long number) {
        return section.read(keys[i].c_str(), std::to_string(number).c_str()) == 0;
      };
      const bool ends = bad[i].starts_with("ends the section");
      EXPECT_TRUE(takes(lowest) && takes(highest));
      EXPECT_EQ(takes(highest + 1), !ends);
      EXPECT_EQ(takes(lowest - 1), !ends);
    }
  }
  EXPECT_EQ(ranges, 7);
}

}  // namespace
