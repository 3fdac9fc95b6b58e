// The documents for portal developers and operators: their examples come to the end that they show,
// and their tables name what the code knows, no more and no less.
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
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

/// A daemon and its database `portal`, which keeps the steps that its jobs take.
class Documents : public testing::Test {
 protected:
  Documents() : daemon_(e2e::daemon_for({"portal"})), portal_(e2e::cluster().connect("portal")) {
    portal_.query(
        "CREATE TABLE step (job_table text, step text);"
        "CREATE FUNCTION keep_step() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN"
        " INSERT INTO step VALUES (TG_TABLE_NAME, OLD.status || '>' || NEW.status);"
        " RETURN NEW; END $$");
    for (const char* const table : {"rate_upload_task", "rerate_cdr_task"})
      portal_.query("CREATE TRIGGER keep AFTER UPDATE ON " + std::string(table) +
                    " FOR EACH ROW EXECUTE FUNCTION keep_step()");
    daemon_->start();
  }
  ~Documents() override { e2e::drop_database("portal"); }

  /// Runs a page's blocks in their order.
  void run(const std::string& page) {
    for (const Block& block : support::blocks(page)) {
      if (block.kind == "text")
        runner_.expect_shown(block.text);
      else
        runner_.run_and_wait(block);
    }
  }

  std::vector<std::string> values(const std::string& sql) {
    std::vector<std::string> all;
    for (const support::Row& row : portal_.query(sql))
      all.push_back(row[0]);
    return all;
  }

  /// The messages of an import.
  std::string messages(const std::string& id) {
    return support::read_file(
        portal_.value("SELECT result_file_path FROM rate_upload_task WHERE id = " + id) +
        "rate_import.log");
  }

  std::unique_ptr<support::DaemonHarness> daemon_;
  Session portal_;
  e2e::PageRunner runner_{*daemon_, "portal", e2e::Widths::free};
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

TEST_F(Documents, JobTablesShowWhatHappens) {
  const std::string page = document("job-tables.md");
  run(page);
  const struct {
    const char* heading;
    std::string table;
    char state;
  } kinds[] = {{"## Imports: `rate_upload_task`", "'rate_upload_task'", 'S'},
               {"## Reratings: `rerate_cdr_task`", "'rerate_cdr_task'", 'R'}};
  for (const auto& [heading, table, state] : kinds) {
    EXPECT_THAT(
        drawn_steps(page, state),
        testing::IsSupersetOf(values("SELECT DISTINCT step FROM step WHERE job_table = " + table)));
    EXPECT_EQ(cells(page, heading, 1),
              values("SELECT attname FROM pg_attribute WHERE attnum > 0 AND attrelid = " + table +
                     "::regclass ORDER BY attnum"));
  }
}

TEST_F(Documents, BillingExplainsCalls) {
  run(document("billing.md"));
}

TEST_F(Documents, RateFilesAreTakenAsShown) {
  const std::string page = document("rate-file-format.md");
  run(page);
  std::string log;
  for (const std::string& message : cells(page, "## Messages", 1))
    if (message.find("system code deck") == std::string::npos)
      log += message + "\n";
  EXPECT_EQ(messages("4"), log);
  // A deck of dates for each format; the code of a line is its number.
  const std::vector<std::string> formats = cells(page, "## Dates", 1),
                                 dates = cells(page, "## Dates", 2),
                                 results = cells(page, "## Dates", 3);
  const size_t examples = 6;  // the rows of the table of formats
  std::map<std::string, std::string> decks, ids;
  std::vector<std::string> codes(examples);
  for (size_t i = examples; i < formats.size(); i++) {
    std::string& deck = decks[formats[i]];
    codes.push_back(std::to_string(std::count(deck.begin(), deck.end(), '\n') + 2));
    deck += codes[i] + ",0.1," + dates[i] + "\n";
  }
  ASSERT_EQ(decks.size(), examples);
  for (const auto& [format, deck] : decks) {
    const std::string table = std::to_string(100 + ids.size());
    const std::filesystem::path folder = daemon_->path() / "upload" / table;
    std::filesystem::create_directory(folder);
    ids[format] = e2e::submit(portal_, folder, "code,rate,effective_date\n" + deck, table,
                              {{"rate_date_format", "'" + format + "'"}});
  }
  runner_.wait_for_jobs();
  for (size_t i = examples; i < formats.size(); i++) {
    const std::string
        id = ids[formats[i]],
        stored = portal_.value(
            "SET timezone = 'UTC'; SELECT effective_date FROM rate JOIN rate_upload_task"
            " USING (rate_table_id) WHERE id = " +
            id + " AND code = '" + codes[i] + "'");
    const std::string refused = "Line " + codes[i] + " : " + results[i] + "\n";
    EXPECT_TRUE(stored == results[i] ||
                (stored.empty() && messages(id).find(refused) != std::string::npos))
        << formats[i] << " " << dates[i] << ": " << stored << messages(id);
  }
}

TEST(ConsoleProtocol, SessionIsAnsweredAsShown) {
  support::DaemonHarness daemon;
  daemon.write_database_list(
      "[portal]\ndb_host=127.0.0.1\ndb_listen_port=5432\ndb_name=portal\ndb_user=portal\n"
      "db_user_password=secret\n");
  daemon.start();
  e2e::PageRunner runner(daemon, "", e2e::Widths::exact);
  const std::vector<Block> shown = support::blocks(document("console-protocol.md"));
  ASSERT_EQ(shown.size(), 2U);
  runner.run(shown[0]);
  runner.expect_shown(shown[1].text);
}

TEST(Daemons, DoOnOneDatabaseWhatTheManualSays) {
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
  EXPECT_TRUE(support::wait_until([&] { return e2e::waiting(other, 2); }));
  portal.query("COMMIT");
  for (const support::DaemonHarness* const daemon : {first.get(), &second})
    EXPECT_TRUE(daemon->wait_log("rate upload task " + id + " have been completed, Insert: 1(1)"));
  EXPECT_EQ(portal.value("SELECT count(*) FROM rate WHERE end_date IS NULL"), "2");
}

using conf_pairs = std::vector<std::string>;
conf_pairs* g_pairs = nullptr;  // a callback of the reader has no context

TEST(Configuration, FilesAreReadAsShown) {
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
  const support::TempDir folder("");
  std::istringstream words(support::shell(folder.path(), "grep -rohE '\"[a-z_]+\"' " QVN_SOURCE_DIR
                                                         "/src | sort -u | tr -d '\"'")
                               .out);
  const std::vector<std::string> literals{std::istream_iterator<std::string>(words), {}};
  int known = 0;
  for (const Section& section : kSections) {
    const std::vector<std::string> keys = cells(page, section.heading, 1);
    for (const std::string& word : literals) {
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
