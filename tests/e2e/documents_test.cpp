// The documents for portal developers and operators: their examples come to the end that they show,
// and their tables name what the code knows, no more and no less.
#include <cctype>
#include <fnmatch.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <sstream>

#include "base/qvn_conf_file.h"
#include "core/qvn_core_ctrl.h"
#include "core/qvn_settings.h"
#include "db/qvn_db_conf.h"
#include "e2e/import_world.h"
#include "rate_upload/qvn_rate_upload.h"
#include "rerate/qvn_rerate.h"

namespace {

using support::Session;

std::string document(const std::string& name) {
  return support::read_file(QVN_SOURCE_DIR "/docs/" + name);
}

void replace_all(std::string& text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
}

/// A fenced block: "sql", "sh", "csv NAME" or "text", and its lines.
struct Block {
  std::string kind;
  std::string text;
};

std::vector<Block> blocks(const std::string& page) {
  std::vector<Block> all;
  std::istringstream lines(page);
  bool inside = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("```")) {
      inside = !inside;
      if (inside)
        all.push_back({line.substr(3), ""});
    } else if (inside) {
      all.back().text += line + "\n";
    }
  }
  return all;
}

/// Widths of columns do not matter: one of several blanks or dashes, no blank at a line's begin or
/// end, no empty line.
std::string squeezed(const std::string& text) {
  std::string result;
  for (const char c : text) {
    const char last = result.empty() ? '\n' : result.back();
    if ((c == ' ' && (last == ' ' || last == '\n')) || (c == '-' && last == '-'))
      continue;
    if (c == '\n' && last == ' ')
      result.pop_back();
    if (c != '\n' || (!result.empty() && result.back() != '\n'))
      result += c;
  }
  return result;
}

/// Runs a page's blocks against one daemon and its database `portal`.
class PageRunner {
 public:
  PageRunner() : daemon_(e2e::daemon_for({"portal"})), portal_(e2e::cluster().connect("portal")) {
    std::filesystem::create_directory(daemon_->path() / "upload");
    std::filesystem::permissions(daemon_->path() / "upload", std::filesystem::perms(0755));
    keep_steps("rate_upload_task");
    keep_steps("rerate_cdr_task");
    daemon_->start();
  }
  ~PageRunner() { e2e::drop_database("portal"); }
  PageRunner(const PageRunner&) = delete;
  PageRunner& operator=(const PageRunner&) = delete;

  void run(const std::string& page) {
    const Block* asked = nullptr;
    std::string output;
    int compared = 0;
    const std::vector<Block> all = blocks(page);
    for (const Block& block : all) {
      SCOPED_TRACE(block.kind + "\n" + block.text);
      if (block.kind == "text") {
        ASSERT_NE(asked, nullptr);
        // What a shell looks at may be written a moment after the job's row.
        EXPECT_TRUE(is_shown(output, block.text) ||
                    (asked->kind == "sh" && wait_until_shown(*asked, block.text)))
            << "is:\n"
            << output;
        ++compared;
      } else if (block.kind.starts_with("csv ")) {
        support::write_file(daemon_->path() / "upload" / block.kind.substr(4), block.text);
      } else if (block.kind == "sql" || block.kind == "sh") {
        output = execute(block);
        asked = &block;
      }
    }
    EXPECT_GT(compared, 2);
  }

  /// The changes of status that the jobs of a table went through, "0>1 1>2 ...".
  std::vector<std::string> steps(const std::string& table) {
    std::vector<std::string> all;
    for (const support::Row& row : portal_.query("SELECT DISTINCT step FROM step_of_" + table))
      all.push_back(row[0]);
    return all;
  }

  std::vector<std::string> columns_of(const std::string& table) {
    std::vector<std::string> all;
    for (const support::Row& row :
         portal_.query("SELECT attname FROM pg_attribute WHERE attnum > 0 AND attrelid = '" +
                       table + "'::regclass ORDER BY attnum"))
      all.push_back(row[0]);
    return all;
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
         portal_.query("SET timezone = 'UTC'; SELECT code, effective_date FROM rate JOIN "
                       "rate_upload_task USING"
                       " (rate_table_id) WHERE id = " +
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

  void wait_for_jobs() {
    EXPECT_TRUE(support::wait_until([&] {
      return portal_.value(
                 "SELECT bool_and(status >= 4) FROM (SELECT status FROM rate_upload_task"
                 " UNION ALL SELECT status FROM rerate_cdr_task) job") == "t";
    }));
  }

 private:
  void keep_steps(const std::string& table) {
    portal_.query("CREATE TABLE step_of_" + table + " (step text);" + "CREATE FUNCTION keep_" +
                  table +
                  "() RETURNS trigger LANGUAGE plpgsql AS $$"
                  " BEGIN INSERT INTO step_of_" +
                  table +
                  " VALUES (OLD.status || '>' || NEW.status); RETURN NEW; END $$;"
                  "CREATE TRIGGER keep AFTER UPDATE ON " +
                  table + " FOR EACH ROW EXECUTE FUNCTION keep_" + table + "()");
  }

  std::string execute(const Block& block) {
    std::string text = block.text;
    replace_all(text, "/opt/qvn_web_helper", daemon_->path());
    replace_all(text, "/var/portal/upload", daemon_->path() / "upload");
    const std::filesystem::path script = daemon_->path() / "block", shown = daemon_->path() / "out";
    support::write_file(script, text);
    const std::string runner =
        block.kind == "sh" ? "sh -e"
                           : std::string(QVN_PG_BINDIR) + "/psql -Xq -v ON_ERROR_STOP=1 -d portal" +
                                 " -h 127.0.0.1 -U " + support::TestCluster::kUser + " -p " +
                                 std::to_string(e2e::cluster().port()) + " -f";
    const std::string command = std::string("PGPASSWORD=") + support::TestCluster::kPassword + " " +
                                runner + " " + script.string() + " >" + shown.string() + " 2>&1";
    EXPECT_TRUE(system(command.c_str()) == 0 || block.kind == "sh") << support::read_file(shown);
    if (text.find("_task (") != std::string::npos)
      wait_for_jobs();
    std::string output = support::read_file(shown);
    replace_all(output, daemon_->path(), "/opt/qvn_web_helper");
    return output;
  }

  static bool is_shown(const std::string& output, const std::string& shown) {
    std::string pattern = squeezed(shown);
    replace_all(pattern, "[", "\\[");
    replace_all(pattern, "?", "\\?");
    replace_all(pattern, "...", "*");
    return fnmatch(pattern.c_str(), squeezed(output).c_str(), 0) == 0;
  }

  bool wait_until_shown(const Block& block, const std::string& shown) {
    return support::wait_until([&] { return is_shown(execute(block), shown); }, 10);
  }

  std::unique_ptr<support::DaemonHarness> daemon_;
  Session portal_;
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
std::vector<std::string> cells(const std::string& page, const std::string& heading, int column) {
  std::vector<std::string> all;
  const size_t begin = page.find("\n" + heading + "\n");
  EXPECT_NE(begin, std::string::npos) << heading;
  std::istringstream lines(page.substr(begin + 1, page.find("\n#", begin + 1) - begin));
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("| `"))
      continue;
    std::istringstream row(line);
    std::string cell;
    for (int i = 0; i <= column; i++)
      std::getline(row, cell, '|');
    std::erase(cell, '`');
    all.push_back(cell.substr(1, cell.size() - 2));
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
  for (const std::string table : {"rate_upload_task", "rerate_cdr_task"}) {
    const std::string kind = table == "rate_upload_task" ? "Imports" : "Reratings";
    EXPECT_EQ(cells(page, "## " + kind + ": `" + table + "`", 1), runner.columns_of(table));
  }
}

/// Progress texts are what is handed to fail(), refuse() and the progress updates; what the code
/// fills in is a "*".
TEST(Documents, JobTablesNameEveryProgressText) {
  const std::string page = document("job-tables.md");
  int found = 0;
  for (const std::string folder : {"rate_upload", "rerate"}) {
    for (const std::string& source : sources(folder)) {
      for (const std::string call : {"fail(", "refuse(task, ", "progress_update("}) {
        for (size_t at = source.find(call); at != std::string::npos;
             at = source.find(call, at + 1)) {
          const std::vector<std::string> texts = literals(source, at, source.find(';', at));
          if (texts.empty() || texts.back().empty() || texts.back().starts_with("UPDATE "))
            continue;
          std::string pattern = "*`" + texts.back() + "`*";
          replace_all(pattern, "%s", "*");
          replace_all(pattern, "%u", "*");
          EXPECT_EQ(fnmatch(pattern.c_str(), page.c_str(), 0), 0) << texts.back();
          ++found;
        }
      }
    }
  }
  EXPECT_GT(found, 30) << "the texts are no longer found this way in the source";
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

}  // namespace
