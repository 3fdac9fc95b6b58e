// The rights that SECURITY.md gives the daemon's role: both kinds of jobs work with them, and not
// with one of them taken away.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "e2e/portal_world.h"
#include "support/page.h"

namespace {

using support::Session;

/// The statements of SECURITY.md that give rights, for the day's table of the tests.
std::string grants() {
  std::string all;
  for (const support::Block& block : support::blocks(support::read_file(QVN_SECURITY_DOC)))
    all += block.text.starts_with("GRANT ") ? block.text : "";
  support::replace_all(all, "client_cdr20260131", "client_cdr20260301");
  return all;
}

struct Right {
  const char* name;     ///< also the database's
  const char* revoked;  ///< the part of GRANT ... TO that is taken away; null for nothing
};

const Right kRights[] = {
    {"all_rights", nullptr},
    {"no_upload_select", "SELECT ON rate_upload_task"},
    {"no_upload_update", "UPDATE (progress) ON rate_upload_task"},
    {"no_rerate_select", "SELECT ON rerate_cdr_task"},
    {"no_rerate_update", "UPDATE (progress) ON rerate_cdr_task"},
    {"no_rate_select", "SELECT ON rate"},
    {"no_rate_insert", "INSERT ON rate"},
    {"no_rate_delete", "DELETE ON rate"},
    {"no_rate_update", "UPDATE (end_date) ON rate"},
    {"no_sequence", "USAGE ON SEQUENCE rate_rate_id_seq"},
    {"no_code", "SELECT ON code"},
    {"no_rate_table", "SELECT ON rate_table"},
    {"no_resource", "SELECT ON resource"},
    {"no_time_profile", "SELECT ON time_profile"},
    {"no_jurisdiction", "SELECT ON jurisdiction_prefix"},
    {"no_calls", "SELECT ON client_cdr20260301"},
};

/// A rate to be deleted, one to be ended, a code deck, a call whose rate has a time profile; both
/// jobs wait.
void fill(Session& portal, const std::filesystem::path& folder) {
  e2e::store_rate(portal, "7", "44", "9", "2024-03-01");
  e2e::store_rate(portal, "7", "49", "9", "2020-01-01");
  portal.query(
      "INSERT INTO code (code, code_deck_id, country, name) VALUES ('44', 1, 'GB', 'UK');"
      "INSERT INTO time_profile (time_profile_id, type) VALUES (3, 0);"
      "INSERT INTO jurisdiction_prefix (prefix, jurisdiction_id, jurisdiction_country_id)"
      " VALUES ('1212', 1, 1);" +
      e2e::rate_table("1") + e2e::trunk("1", "t") + e2e::rate("rate_id=1000 time_profile_id=3"));
  e2e::store_calls(portal, "20260301", {e2e::call()});
  e2e::submit(portal, folder, "code,rate,effective_date\n44,0.5,2024-03-01\n49,0.6,2024-03-01\n",
              "7", {{"reduplicate_rate_action", "1"}, {"code_deck_flag", "1"}});
  e2e::rerate(portal, "ingress_trunk='1,1,1,0' update_us_jurisdiction=1");
}

/// What became of both jobs, with all that depends on a right.
std::string outcome(Session& portal) {
  return portal.value(
             "SELECT u.status || ' ' || coalesce(u.progress, '') || ' ' || r.status || ' ' ||"
             " coalesce(r.err_code, 0) || ' ' || coalesce(r.cdr_file, '') || ' ' ||"
             " (SELECT count(*) || ' ' || count(code_name) || ' ' || count(end_date) FROM rate"
             "  WHERE rate_table_id = 7)"
             " FROM rate_upload_task u, rerate_cdr_task r") +
         " " + support::read_file(e2e::cdr_file(portal, "1", "1"));
}

/// What the tool would have the administrator grant in the database of that section.
std::string advice(const support::DaemonHarness& daemon, const std::string& section) {
  const std::filesystem::path folder = daemon.path() / "asked";
  std::filesystem::create_directories(folder);
  support::write_file(folder / "qvn_web_helper.conf", "");
  support::write_file(folder / "qvn_db_info.conf", section);
  return support::shell(folder, "qvn_conf_check -c . | sed '/note:/d; s/.* without: //'").out;
}

TEST(Rights, OfTheManualSufficeAndNoneIsTooMany) {
  e2e::cluster()
      .connect("postgres")
      .query("CREATE ROLE qvn_daemon LOGIN PASSWORD 'portal-password' NOSUPERUSER");
  std::vector<std::string> databases;
  for (const Right& right : kRights)
    databases.emplace_back(right.name);
  auto daemon = e2e::daemon_for(databases);
  std::string list = support::read_file(daemon->path() / "conf/qvn_db_info.conf");
  support::replace_all(list, "db_user=portal\n", "db_user=qvn_daemon\n");
  daemon->write_database_list(list);
  for (const Right& right : kRights) {
    Session portal = e2e::cluster().connect(right.name);
    fill(portal, daemon->path());
    portal.query(grants());
    if (right.revoked != nullptr)
      portal.query("REVOKE " + std::string(right.revoked) + " FROM qvn_daemon");
    std::string section = support::database_section(right.name, e2e::cluster().port(), right.name);
    support::replace_all(section, "db_user=portal\n", "db_user=qvn_daemon\n");
    const std::string revoked = right.revoked == nullptr ? "" : right.revoked;
    EXPECT_EQ(advice(*daemon, section),
              revoked.empty() ? "" : "GRANT " + revoked + " TO qvn_daemon;\n");
  }
  daemon->start();
  const std::string success =
      "4 Insert: 2, Delete: 1, Update: 1, Error: 0 4 0 1-1-2026-03-01.cdr 3 1 1 ";
  Session whole = e2e::cluster().connect("all_rights");
  EXPECT_TRUE(support::wait_until([&] { return outcome(whole).starts_with(success); }))
      << outcome(whole);
  const std::string good = outcome(whole);
  EXPECT_THAT(good, testing::HasSubstr("0.100000"));
  EXPECT_THAT(daemon->log(), testing::Not(testing::HasSubstr("all_rights DB")));
  // Of each job table two databases refuse the daemon's statements, in one visit after the other.
  for (const std::string table : {"rate_upload_task", "rerate_cdr_task"})
    EXPECT_TRUE(daemon->wait_log("permission denied for table " + table, 4)) << table;
  for (const std::string& name : databases) {
    SCOPED_TRACE(name);
    Session portal = e2e::cluster().connect(name);
    // Jobs end, but for those whose row the daemon may not read or write.
    const bool ends = name.find("upload") == name.npos && name.find("rerate") == name.npos;
    EXPECT_TRUE(!ends || support::wait_until([&] {
      return portal.value(
                 "SELECT bool_and(status >= 4) FROM (SELECT status FROM rate_upload_task"
                 " UNION ALL SELECT status FROM rerate_cdr_task) j") == "t";
    })) << outcome(portal);
    EXPECT_EQ(outcome(portal) == good, name == "all_rights");
  }
}

}  // namespace
