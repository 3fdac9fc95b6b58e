// qvn_conf_check: one line for everything that the daemon would not take as it is written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "e2e/portal_world.h"
#include "support/shell.h"

namespace {

using support::Ending;
using testing::HasSubstr;
using testing::Not;

/// What every database section below begins with, and a whole one.
constexpr const char* kHost = "db_host=127.0.0.1\ndb_listen_port=5432\n";
std::string database(const std::string& section, const std::string& name) {
  return "[" + section + "]\n" + kHost + "db_name=" + name + "\ndb_user=u\ndb_user_password=p\n";
}

/// Whether the daemon itself runs with that list, and these settings of its console.
bool daemon_starts(const std::string& list, const std::string& console = "") {
  support::DaemonHarness daemon;
  daemon.set_console(console);
  daemon.write_main_conf("");
  daemon.write_database_list(list);
  daemon.launch();
  const auto logged = [&](const char* text) { return support::count_of(daemon.log(), text) > 0; };
  EXPECT_TRUE(support::wait_until(
      [&] { return logged("Start running...\n") || logged("Waiting for qvn_web_helper exit"); }));
  return logged("Start running...\n");
}

/// A folder with conf/ and a database list.
class ConfCheck : public testing::Test {
 protected:
  ConfCheck() : folder_("") {
    std::filesystem::create_directory(folder_.path() / "conf");
    write_main("");
    write_list("");
  }
  void write_main(const std::string& text) const {
    support::write_file(folder_.path() / "conf/qvn_web_helper.conf", text);
  }
  void write_list(const std::string& text) const {
    support::write_file(folder_.path() / "conf/qvn_db_info.conf", text);
  }
  [[nodiscard]] Ending check(const std::string& arguments = "conf") const {
    return support::shell(folder_.path(), "qvn_conf_check " + arguments);
  }

  struct Case {
    std::string text;
    int status;
    std::string lines;  ///< without the file's name
  };
  template <typename Write, typename Cases>
  void expect(Write write, const Cases& cases, const std::string& file) const {
    for (const Case& test : cases) {
      SCOPED_TRACE(test.text);
      write(test.text);
      const Ending ending = check();
      std::string lines = ending.out;
      for (size_t at = 0; (at = lines.find(file, at)) != std::string::npos;)
        lines.erase(at, file.size());
      EXPECT_EQ(lines, test.lines);
      EXPECT_EQ(ending.status, test.status);
      EXPECT_EQ(ending.err, "");
    }
  }

  support::TempDir folder_;
};

TEST_F(ConfCheck, TellsWhatTheMainFileLoses) {
  const std::string x253(253, 'x');
  const Case cases[] = {
      {"", 0, ""},
      {"# note\n\n[general]\nlog_level\t=6\t# note\nMAX_log_size = 1 ; note\n", 0, ""},
      {"[general]\nlog_levle secret=6\nlog_level "
       "6\n=6\nlog_level=\nlog_level=#6\nmax_rerate_task=9\n",
       1,
       ":2: log_levle: unknown key, ignored\n"
       ":3: no \"key=value\": ignored\n"
       ":4: no \"key=value\": ignored\n"
       ":5: log_level: no value: ignored\n"
       ":6: log_level: no value in front of \"#\": ignored\n"
       ":7: max_rerate_task: ignored here: it belongs in section [rerate]\n"},
      {"[CLI]\ncli_login_user=a b\ncli_login_pwd=sec#ret\ncli_login_user=a;b\n"
       "cli_login_pwd=sec\tret\n",
       1,
       ":2: cli_login_user: the value is cut at a blank\n"
       ":3: cli_login_pwd: the value is cut at \"#\"\n"
       ":4: cli_login_user: the value is cut at \";\"\n"
       ":4: cli_login_user: given again: this one counts, not that of line 2\n"
       ":5: cli_login_pwd: given again: this one counts, not that of line 3\n"
       ":5: cli_login_pwd: a tab is part of the value\n"},
      {"[CLI]\ncli_login_user=me # note\ncli_login_pwd=tulip #7\n", 1,
       ":3: cli_login_pwd: the value is cut at a blank\n"},
      {"[CLI]\ncli_login_pwd=mine.$ecret\ncli_login_user=names.$operator\n"
       "cli_connection_limit=limit.$none\nbase=/var/\n"
       "[names]\noperator=anna\n"
       "[rerate]\ncdr_directory=CLI.$base\nmax_rerate_task=CLI.$cli_login_pwd\n",
       1,
       ":2: cli_login_pwd: \".$\" makes the value a reference, which leads nowhere: the line is "
       "ignored\n"
       ":3: cli_login_user: \".$\" makes the value a reference names.$operator\n"
       ":4: cli_connection_limit: \".$\" makes the value a reference limit.$none, which leads "
       "nowhere: the line is ignored\n"
       ":9: cdr_directory: \".$\" makes the value a reference CLI.$base\n"
       ":10: max_rerate_task: \".$\" makes the value a reference CLI.$cli_login_pwd\n"
       ":10: max_rerate_task: \"CLI.$cli_login_pwd\" is not a number: taken as 0\n"
       ":10: max_rerate_task: 0 is not in 5 to 100 and is used all the same; the rest of section "
       "[rerate] is not read\n"},
      {"[general]\nlog_level=9\nmax_log_size=4194305\n[CLI]\ncli_listen_port=70000\n"
       "cli_connection_limit=3x\ncli_connection_expires=9\ncli_login_user=me\n# note\n"
       "[rerate]\nmax_rerate_task=many\n[rate_upload]\nmax_rate_upload_task=301\n",
       1,
       ":2: log_level: 9 is not in 0 to 7 and is used all the same\n"
       ":3: max_log_size: 4194305 does not fit: taken as 1\n"
       ":5: cli_listen_port: 70000 does not fit: taken as 4464\n"
       ":6: cli_connection_limit: \"3x\" is not a number: taken as 3\n"
       ":7: cli_connection_expires: 9 is not in 10 to 3600 and is used all the same; the rest of "
       "section [CLI] is not read\n"
       ":8: not read: the section ends for the daemon in line 7\n"
       ":11: max_rerate_task: \"many\" is not a number: taken as 0\n"
       ":11: max_rerate_task: 0 is not in 5 to 100 and is used all the same; the rest of section "
       "[rerate] is not read\n"
       ":13: max_rate_upload_task: 301 is not in 5 to 300 and is used all the same; the rest of "
       "section [rate_upload] is not read\n"},
      {"[general]\nmax_log_size=4194304\n", 1,
       ":2: max_log_size: 4194304 does not fit: taken as 0\n"
       ":2: max_log_size: 0 is not in 1 to 1048576 and leaves the default; the rest of section "
       "[general] is not read\n"},
      {"log_level=1\n[ cli ]\n[general\n[]\n[general]\nlog_level=1\n[general]\nlog_level=2\n"
       "[other]\nkey=1\n",
       1,
       ":1: before the first section: ignored\n"
       ":2: section [cli] is not read: write [CLI]\n"
       ":3: no \"]\": ignored, the section above goes on\n"
       ":4: a section without a name is not read\n"
       ":7: section [general] again: only the one in line 5 is read\n"
       ":9: section [other] is not read\n"},
      {"[rerate]\ncdr_directory=/" + std::string(197, 'd') + "\n# " + x253 +
           "\n[CLI]\ncli_login_pwd=" + x253 + "=secret\nunknown=1\n",
       1,
       ":2: cdr_directory: the value is cut after 197 characters\n"
       ":3: longer than 253 characters: what follows them is read as a line of its own\n"
       ":5: longer than 253 characters: what follows them is read as a line of its own\n"
       ":6: unknown: unknown key, ignored\n"},
      {"[CLI]\ncli_listen_ip=localhost\n", 1,
       ":2: cli_listen_ip: not a numeric IPv4 address, nobody reaches the console\n"},
      {"[CLI]\ncli_listen_ip=127.0.0.1\ncli_listen_ip=203.000.113.2000\n", 2,
       ":3: cli_listen_ip: given again: this one counts, not that of line 2\n"
       ":3: cli_listen_ip: the value is cut after 15 characters\n"
       ":3: cli_listen_ip: this machine does not have the address, the daemon does not start\n"},
      {std::string("[CLI]\n\x1b[2J=\x01\n[a\0b]\n=", 20), 1,
       ":2: ?: unknown key, ignored\n:3: no \"]\": ignored, the section above goes on\n"
       ":4: no \"key=value\": ignored\n"},
  };
  expect([this](const std::string& text) { write_main(text); }, cases, "conf/qvn_web_helper.conf");
}

TEST_F(ConfCheck, TellsWhichDatabasesTheDaemonRefusesOrDrops) {
  const std::string n99(99, 'n');
  const Case cases[] = {
      {database("a", "one") + database("b", "two") + database(n99, "three"), 0, ""},
      {std::string("[a]\n") + kHost + "db_name=x\n", 2,
       ":1: section [a] has no db_user, db_user_password: the daemon does not start\n"},
      {database("a", "one") + "db_listen_port=80\n", 2,
       ":1: section [a] has a db_listen_port below 1024: the daemon does not start\n"
       ":7: db_listen_port: given again: this one counts, not that of line 3\n"},
      {database("a", "one") + "[a]\nport=1\n[b]\n" + kHost +
           "db_name=one\ndb_user=u\ndb_user_password=p\n",
       1,
       ":1: section [a] is dropped: the one in line 9, further down, has the same db_host and "
       "db_name\n"
       ":7: section [a] again: only the one in line 1 is read\n"},
      {database("n" + n99, "long"), 2,
       ":1: the section's name is longer than 99 characters: the daemon does not start\n"},
      {database("a", "one") + "db_user_password=sec\\ret\ndb_host=localhost\n", 1,
       ":1: section [a]: db_user_password does not reach the server as written: a quote, a "
       "backslash, a tab, or all values together are too long\n"
       ":1: section [a]: db_host is not a numeric address, it cannot be reached\n"
       ":7: db_user_password: given again: this one counts, not that of line 6\n"
       ":8: db_host: given again: this one counts, not that of line 2\n"},
      {database("a", "one") + "db_listen_port=70000\n", 1,
       ":7: db_listen_port: given again: this one counts, not that of line 3\n"
       ":7: db_listen_port: 70000 does not fit: taken as 4464\n"},
  };
  expect([this](const std::string& text) { write_list(text); }, cases, "conf/qvn_db_info.conf");
  for (const Case& test : cases)
    EXPECT_EQ(daemon_starts(test.text), test.status < 2) << test.text;
  EXPECT_TRUE(daemon_starts("", "cli_listen_ip=localhost\n"));
  EXPECT_FALSE(daemon_starts("", "cli_listen_ip=203.0.113.200\n"));
}

TEST_F(ConfCheck, TakesAFolderAndAnswersForFilesThatCannotBeUsed) {
  EXPECT_EQ(check(".").status, 0);
  EXPECT_EQ(check("--connect .").status, 0);
  EXPECT_EQ(support::shell(folder_.path(), "cp $(command -v qvn_conf_check) . && ./qvn_conf_check")
                .status,
            0);
  EXPECT_EQ(check("one two").status, 2);
  EXPECT_EQ(check("--unheard-of").status, 2);
  EXPECT_THAT(check("--help").out, HasSubstr("Exit status: 0"));
  const Ending none = check("none");
  EXPECT_EQ(none.status, 2);
  EXPECT_EQ(none.out,
            "none/qvn_web_helper.conf: No such file or directory\n"
            "none/qvn_db_info.conf: No such file or directory\n");
  const Ending pipe = support::shell(folder_.path(),
                                     "rm conf/*info*; mkfifo conf/qvn_db_info.conf; "
                                     "qvn_conf_check .");
  EXPECT_EQ(pipe.status, 2);
  EXPECT_EQ(pipe.out, "./conf/qvn_db_info.conf: not a plain file\n");
}

/// A server with the portal's tables, a role with the rights of SECURITY.md, and what can go wrong.
TEST(ConfCheckConnect, TriesEachDatabaseWithTheRightsThatTheDaemonNeeds) {
  const std::string name = "conf_check";
  e2e::cluster().create_database(name);
  support::Session portal = e2e::cluster().connect(name);
  const std::string columns = "status, progress, start_time, end_time";
  portal.query(
      "CREATE ROLE few LOGIN PASSWORD 'few-password';"
      "GRANT SELECT, UPDATE (" +
      columns +
      ", expense_detail, result_file_path)"
      " ON rate_upload_task TO few;"
      "GRANT SELECT, UPDATE (" +
      columns +
      ", err_code, load_cdr_elapsed_sec,"
      " load_rate_elapsed_sec, rerate_elapsed_sec, cdr_file, cdr_file_path)"
      " ON rerate_cdr_task TO few");
  support::TempDir folder("");
  support::write_file(folder.path() / "qvn_web_helper.conf", "");
  const auto list = [&](const std::string& section) {
    support::write_file(folder.path() / "qvn_db_info.conf", section);
    return support::shell(folder.path(), "qvn_conf_check --connect .");
  };
  const std::string few = support::database_section("shop", e2e::cluster().port(), name) +
                          "db_user=few\ndb_user_password=few-password\n";
  // The two keys that are given again are told each time.
  const auto said = [](const Ending& ending) { return support::count_of(ending.out, "\n") - 2; };

  EXPECT_EQ(list(support::database_section("shop", e2e::cluster().port(), name)).out, "");
  EXPECT_EQ(said(list(few)), 0);

  struct Case {
    const char* change;
    const char* line;
  };
  for (const Case& test :
       {Case{"REVOKE UPDATE (cdr_file) ON rerate_cdr_task FROM few",
             ":1: section [shop]: cannot work: permission denied for table rerate_cdr_task\n"},
        Case{"REVOKE SELECT ON rate_upload_task FROM few",
             ":1: section [shop]: cannot work: permission denied for table rate_upload_task\n"},
        Case{"DROP TABLE rate_upload_task",
             ":1: section [shop]: cannot work: relation \"rate_upload_task\" does not exist\n"}}) {
    portal.query(test.change);
    const Ending ending = list(few);
    EXPECT_EQ(ending.status, 1);
    EXPECT_EQ(said(ending), 1);
    EXPECT_THAT(ending.out, HasSubstr(test.line));
  }
  const Ending wrong = list(few + "db_user_password=wrong\n");
  EXPECT_EQ(wrong.status, 1);
  EXPECT_THAT(wrong.out, HasSubstr("section [shop]: cannot connect: "));
  EXPECT_THAT(wrong.out, HasSubstr("password authentication failed for user \"few\""));
  EXPECT_THAT(wrong.out, Not(HasSubstr("wrong")));
}

}  // namespace
