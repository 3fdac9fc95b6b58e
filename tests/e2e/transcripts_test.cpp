// The transcripts of the document on the check tools: each command prints what the document shows.
#include <gtest/gtest.h>
#include <set>
#include <sstream>

#include "e2e/portal_world.h"
#include "support/page.h"
#include "support/shell.h"

namespace {

using support::TestCluster;

struct Command {
  std::string line;
  std::string shown;
};

std::vector<Command> commands(const std::string& transcript) {
  std::vector<Command> all;
  std::istringstream lines(transcript);
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with("$ "))
      all.push_back({line.substr(2), ""});
    else
      all.back().shown += line + "\n";
  return all;
}

/// A folder with the tools and a list of databases, as the transcripts find it.
class Transcripts : public testing::Test {
 protected:
  Transcripts() {
    e2e::cluster().create_database("portal");
    std::filesystem::create_directory(folder_.path() / "conf");
    expect_shown_by("cp " QVN_TOOLS "/qvn_*_check .", "");
  }
  ~Transcripts() override { e2e::drop_database("portal"); }

  void write_conf(const std::string& name, const std::string& text) {
    support::write_file(folder_.path() / "conf" / name, text);
  }
  static std::string section(const std::string& name, const std::string& database) {
    return support::database_section(name, e2e::cluster().port(), database);
  }

  void expect_shown_by(const std::string& command, const std::string& shown) {
    const support::Ending ending = support::shell(
        folder_.path(),
        "exec 2>&1; export PATH=.:$PATH PGTZ=UTC PGHOST=127.0.0.1 PGDATABASE=portal PGPORT=" +
            std::to_string(e2e::cluster().port()) + " PGUSER=" + TestCluster::kUser +
            " PGPASSWORD=" + TestCluster::kPassword + "; " + command);
    EXPECT_EQ(ending.out, shown) << command;
  }

  /// What is shown of a file is its content, or, of a file that a command has made, what it wrote.
  void run(const support::Block& transcript) {
    for (const Command& command : commands(transcript.text)) {
      const std::string file = command.line.starts_with("cat ") ? command.line.substr(4) : "";
      if (file.empty() ||
          (std::filesystem::exists(folder_.path() / file) && !given_.contains(file)))
        // psql ends lines with blanks, and its output with an empty line.
        expect_shown_by(command.line.starts_with("psql ") ? command.line + " | sed 's/ *$//; /^$/d'"
                                                          : command.line,
                        command.shown);
      else
        support::write_file(folder_.path() / *given_.insert(file).first, command.shown);
    }
  }

  support::TempDir folder_{""};
  std::set<std::string> given_ = {"conf/qvn_web_helper.conf", "conf/qvn_db_info.conf"};
};

TEST_F(Transcripts, OfTheCheckToolsAreWhatTheyPrint) {
  const std::vector<support::Block> shown =
      support::blocks(support::read_file(QVN_SOURCE_DIR "/docs/check-tools.md"));
  ASSERT_EQ(shown.size(), 5U);
  support::Session portal = e2e::cluster().connect("portal");
  for (const auto& [code, rate] : {std::pair("44", "0.012"),
                                   {"4420", "0.009"},
                                   {"4479", "0.02"},
                                   {"49", "0.011"},
                                   {"4930", "0.011"}})
    e2e::store_rate(portal, "7", code, rate, "2025-03-01");
  write_conf("qvn_db_info.conf", section("switch1", "portal"));
  for (size_t i = 0; i < 4; i++)
    run(shown[i]);
  // The last one is of the corrected configuration, and of a role that lacks two rights.
  portal.query(
      "CREATE ROLE qvn_daemon LOGIN PASSWORD 'portal-password' NOSUPERUSER;"
      "CREATE TABLE client_cdr20260131 (LIKE client_cdr)");
  for (const support::Block& block : support::blocks(support::read_file(QVN_SECURITY_DOC)))
    if (block.text.starts_with("GRANT "))
      portal.query(block.text);
  portal.query("REVOKE SELECT ON resource, client_cdr20260131 FROM qvn_daemon");
  write_conf("qvn_web_helper.conf", "[CLI]\ncli_listen_ip=127.0.0.1\ncli_listen_port=4410\n");
  std::string east = section("east", "portal"), west = section("west", "portal_west");
  support::replace_all(east, "db_user=portal\n", "db_user=qvn_daemon\n");
  support::replace_all(west, std::to_string(e2e::cluster().port()), "5999");
  write_conf("qvn_db_info.conf", east + west);
  run(shown[4]);
}

}  // namespace
