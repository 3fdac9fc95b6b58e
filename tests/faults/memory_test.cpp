// Memory runs out in this process, which works as the daemon does, or in a daemon's start: every
// allocation of a thread fails once, alone or with all that follow.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "base/qvn_log.h"
#include "cli/qvn_cli_server.h"
#include "core/qvn_process.h"
#include "core/qvn_settings.h"
#include "db/qvn_db_conf.h"
#include "e2e/portal_world.h"
#include "faults/memory_faults.h"
#include "rate_upload/qvn_rate_upload.h"
#include "rerate/qvn_rerate.h"
#include "support/console.h"
#include "support/shell.h"

namespace {

using support::DaemonHarness;
using support::read_file;
using support::wait_until;

bool has(const std::string& whole, const std::string& text) {
  return whole.find(text) != std::string::npos;
}

/// Blocks, pages and open files, when all that was logged has been written.
int64_t held() {
  EXPECT_TRUE(qvn_log_drain(std::chrono::seconds(10)));
  return g_memory_held + std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// Does the round without a failure, and then with each number until one is not reached: nothing
/// that a round takes is kept. What is printed last shows where a process died.
void sweep(const char* name, memory_shortage& shortage, const std::function<void()>& round) {
  for (const bool from_then_on : {false, true}) {
    int64_t resting = 0;
    for (int32_t n = 0; n < 2 || (shortage.failed > 0 && !testing::Test::HasFailure()); ++n) {
      shortage.left = n;
      shortage.from_then_on = from_then_on;
      shortage.failed = 0;
      const std::string number = std::string(name) + (from_then_on ? " all " : " once ");
      SCOPED_TRACE(number + std::to_string(n));
      printf("\r%s%d", number.c_str(), n);
      (void)fflush(stdout);
      round();
      shortage.left = 0;
      resting = n == 0 ? held() : resting;
      EXPECT_TRUE(wait_until([&] { return held() <= resting; }, 10)) << held() - resting << " kept";
    }
    printf(" is not reached\n");
  }
}

constexpr const char* kDatabase = "memory_1";

/// An installation over two databases.
std::unique_ptr<DaemonHarness> install() {
  auto daemon = std::make_unique<DaemonHarness>();
  daemon->write_databases(e2e::cluster().port(), {kDatabase, "memory_2"});
  daemon->set_console(
      "cli_login_user=an_operator_of_the_daemon\ncli_login_pwd=its_password_takes_memory\n");
  daemon->write_main_conf("[general]\nlog_level=7\n");
  return daemon;
}

/// One session of the console; all that was answered.
std::string session(int port) {
  const support::Console console(port);
  const bool welcome = console.log_in("an_operator_of_the_daemon its_password_takes_memory");
  console.send("get_conf\r\nreload_conf\r\nhelp\r\nheartbeat\r\nnonsense\r\nlogout\r\n");
  return (welcome ? "" : "no welcome") + console.read(1 << 20);
}

// --- start ---------------------------------------------------------------------------------------

/// Starts a daemon whose main thread has this shortage until the run loop.
pid_t start(const DaemonHarness& daemon, const memory_shortage& own) {
  const std::string number = std::to_string(own.left) + (own.from_then_on ? "+" : "");
  const std::string command = ": >start; QVN_FAIL_AT=" + number +
                              " LD_PRELOAD=" QVN_MEMORY_START
                              " ./qvn_web_helper -nf >start 2>&1 & echo $!";
  return atoi(support::shell(daemon.path(), command).out.c_str());
}

/// A daemon that could start its console lets in only who knows the password, and serves both
/// databases or has logged what it lacks.
TEST(Memory, a_start_ends_with_a_line_or_serves_whichever_allocation_fails) {
  if (QVN_COVERAGE) {
    GTEST_SKIP() << "What counts the coverage does not survive an end without memory";
  }
  const std::unique_ptr<DaemonHarness> daemon = install();
  memory_shortage shortage;
  sweep("start", shortage, [&] {
    const pid_t process = start(*daemon, shortage);
    int status = 0;
    bool ended = false;
    std::string shown;
    EXPECT_TRUE(wait_until([&] {
      ended = waitpid(process, &status, WNOHANG) == process;
      shown = read_file(daemon->path() / "start");
      return ended || has(shown, "runs ");
    }));
    SCOPED_TRACE(shown);
    shortage.failed = has(shown, "runs as ever\n") ? 0 : 1;
    EXPECT_TRUE(shortage.failed == 0 || shortage.left > 0);
    EXPECT_TRUE(shortage.from_then_on || !shown.empty());
    const auto logged = [&](const char* text) {
      return wait_until([&] { return has(read_file(daemon->path() / "start"), text); });
    };
    if (has(shown, "runs without a thread")) {
      EXPECT_TRUE(shortage.from_then_on || logged("can't be started"));
    } else if (!ended) {
      EXPECT_FALSE(support::Console(daemon->console_port()).log_in(""));
      EXPECT_TRUE(support::count_of(session(daemon->console_port()), "(2 rows)") == 2 ||
                  logged("Alloc memory for db info"));
    }
    EXPECT_TRUE(ended ? WIFEXITED(status) : waitpid(process, &status, WNOHANG) == 0) << status;
    if (!ended) {
      kill(process, SIGKILL);
      waitpid(process, &status, 0);
    }
  });
}

// --- the daemon in this process ------------------------------------------------------------------

support::Session open_portal() {
  e2e::cluster().create_database(kDatabase);
  return e2e::cluster().connect(kDatabase);
}

/// The modules at work in this process, but for the poller: a test visits the first database.
struct memory_world {
  memory_world() {
    portal.query(read_file(QVN_SOURCE_DIR "/tests/faults/memory_jobs.sql"));
    g_core_ctrl = new qvn_core_ctrl;
    g_core_ctrl->install_dir = daemon->path();
    g_core_ctrl->conf_dir = daemon->path() / "conf/";
    system_signal_reset();
    qvn_db_set_connection_defaults();
    const std::string log = daemon->path() / "log/qvn_web_helper.log";
    EXPECT_EQ(qvn_log_init() | qvn_log_file_open(log.c_str(), kLogDebug, 0), 0);
    EXPECT_EQ(qvn_default_conf_init() | qvn_load_config() | qvn_db_conf_init() | load_db_info(), 0);
    g_memory_shortage_of_threads = &shortage;
    EXPECT_EQ(qvn_rate_upload_init() | qvn_rate_upload_start(), 0);
    EXPECT_EQ(qvn_rerate_init() | qvn_rerate_start(), 0);
    EXPECT_EQ(qvn_cli_server_init() | qvn_cli_server_start(), 0);
  }

  support::Session portal = open_portal();
  std::unique_ptr<DaemonHarness> daemon = install();
  memory_shortage shortage;  ///< of dispatchers, workers, listener and sessions
};

/// Lives as long as the process, whose threads use it.
memory_world& world() {
  static memory_world* const made = new memory_world;
  return *made;
}

db_info& visited_database() QVN_REQUIRES(g_core_ctrl->db_list_lock) {
  return *g_core_ctrl->db_table->find((std::string("127.0.0.1-") + kDatabase).c_str());
}

/// Looks for jobs as the poller does, with this shortage, and waits until those that it took have
/// counted themselves off.
void visit(memory_shortage* shortage = nullptr) {
  {
    const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
    db_info& database = visited_database();
    const auto limits = poll_budget(1, qvn_pg_connect_timeout()).for_trusted();
    t_memory_shortage = shortage;
    const pg_visit visit(database.conninfo.c_str(), "WEB task", limits,
                         database.polling.limits_statements);
    if (visit.connection()) {
      (void)qvn_rerate_task_get(visit.connection(), &database);
      (void)qvn_rate_upload_task_get(visit.connection(), &database);
    }
  }
  t_memory_shortage = nullptr;
  EXPECT_TRUE(wait_until([] {
    const qvn_lock_guard guard(g_core_ctrl->db_list_lock);
    return visited_database().rerate_count + visited_database().rate_upload_count == 0;
  })) << "a job does not end";
}

// --- jobs ----------------------------------------------------------------------------------------

/// What a job shows: of its row, and what it has made: rates, or a list of files.
enum { kStatus, kProgress, kFolder, kResult };

/// Runs a job. Without a failure it is finished; else its row has a text, or shows how far it came,
/// or is offered again, and then the job is finished. A single failure is logged, unless it was the
/// line's own.
void run_job(const std::string& kind, const std::string& id,
             void (*expect)(const support::Row& job, bool undisturbed)) {
  support::Session& portal = world().portal;
  const std::string shown =
      "SELECT status, progress, folder, result FROM " + kind + "_shown WHERE id = " + id;
  portal.query("SELECT submit_" + kind + "(" + id + ", '" QVN_SOURCE_DIR "/tests/faults')");
  visit();
  const support::Row job = portal.query(shown)[0];
  EXPECT_TRUE(job[kStatus] != "5" || !job[kProgress].empty());
  expect(job, world().shortage.failed == 0);
  if (job[kStatus] != "4" && !world().shortage.from_then_on) {
    EXPECT_TRUE(qvn_log_drain(std::chrono::seconds(10)));
    const std::string log = world().daemon->log();
    EXPECT_TRUE(has(log, " " + id + " execution failed, ") ||
                has(log, " task " + id + " worker thread can't be started, "));
  }
  if (job[kStatus] == "0") {
    world().shortage.left = 0;
    visit();
    expect(portal.query(shown)[0], true);
  }
}

void sweep_job(const char* kind, void (*expect)(const support::Row& job, bool undisturbed)) {
  int id = 1000;
  sweep(kind, world().shortage, [&] { run_job(kind, std::to_string(++id), expect); });
}

/// The new rates are in, all or none, and only then old ones are ended or deleted; an import that
/// says that it is finished has kept the refused line.
void expect_imported(const support::Row& job, bool undisturbed) {
  const std::string old = "33=1, 44=9, 49=9";
  const char* const some = "33=1, 44=9( until 2024-02-29 23:59:59)?, 44=5, (49=9, )?49=6, 7=7";
  EXPECT_THAT(job[kResult], testing::AnyOf(old, testing::MatchesRegex(some)));
  if (job[kStatus] == "4") {
    EXPECT_NE(job[kResult], old);
    EXPECT_EQ(read_file(job[kFolder] + "rate_reimport.csv"), "45,no number,2024-03-01\n");
    EXPECT_TRUE(has(read_file(job[kFolder] + "rate_import.log"), "Line 5 : "));
  }
  if (undisturbed) {
    EXPECT_EQ(job[kResult], "33=1, 44=9 until 2024-02-29 23:59:59, 44=5, 49=6, 7=7");
    EXPECT_EQ(job[kStatus] + job[kProgress], "4Insert: 3, Delete: 1, Update: 1, Error: 1");
  }
}

/// A file that the row names is whole: it is what the first job, which nothing disturbed, has made
/// of the same calls.
void expect_rerated(const support::Row& job, bool undisturbed) {
  static auto& whole = *new std::map<std::string, std::string>;  // by the name without the id
  std::istringstream names(job[kResult]);
  for (std::string name; std::getline(names, name, ',');) {
    const std::string lines = read_file(job[kFolder] + name);
    EXPECT_EQ(support::count_of(lines, "\n"), 4) << name;
    EXPECT_EQ(whole.try_emplace(name.substr(name.find('-')), lines).first->second, lines);
  }
  if (undisturbed) {
    EXPECT_EQ(support::count_of(job[kResult], ".cdr"), 4) << job[kResult];
    EXPECT_EQ(job[kStatus], "4");
  }
}

TEST(Memory, an_import_ends_in_order_whichever_allocation_fails) {
  sweep_job("import", expect_imported);
}

TEST(Memory, a_rerating_ends_in_order_whichever_allocation_fails) {
  sweep_job("rerate", expect_rerated);
}

/// Two jobs of each kind, which their workers refuse, are taken by this visit, or by later ones
/// that find memory again.
TEST(Memory, every_job_is_taken_after_all_whichever_allocation_of_a_visit_fails) {
  memory_shortage shortage;
  sweep("visit", shortage, [&] {
    world().portal.query(
        "DELETE FROM rate_upload_task; INSERT INTO rate_upload_task (status) VALUES (0), (0);"
        "DELETE FROM rerate_cdr_task; INSERT INTO rerate_cdr_task (status) VALUES (0), (0)");
    visit(&shortage);
    EXPECT_TRUE(wait_until([] {
      visit();
      return world().portal.value(
                 "SELECT string_agg(status || progress, ',') FROM"
                 " (TABLE import_shown UNION ALL TABLE rerate_shown) AS job") ==
             "5Unsupported rate date format,5Unsupported rate date format,"
             "5Rerate CDR date invalid,5Rerate CDR date invalid";
    })) << "a job is not taken";
  });
}

// --- console -------------------------------------------------------------------------------------

/// A session misses some answers, and the next one finds memory again. A database that found none
/// in a reload is left out, and the log says so.
TEST(Memory, a_console_session_ends_in_order_whichever_allocation_fails) {
  const std::string reloaded = "(2 rows)\r\n\n\nDB configuration file is reloaded successfully\r\n";
  const int port = world().daemon->console_port();
  const std::string whole = session(port);
  EXPECT_TRUE(has(whole, reloaded)) << whole;
  sweep("session", world().shortage, [&] {
    const std::string answers = session(port);
    EXPECT_TRUE(answers == whole || answers.size() < whole.size()) << answers;
    EXPECT_TRUE(!has(answers, "reloaded successfully") || has(answers, reloaded) ||
                world().daemon->wait_log("Alloc memory for db info 127.0.0.1-memory_"));
    world().shortage.left = 0;
    (void)session(port);  // reloads
    EXPECT_EQ(session(port), whole);
  });
}

}  // namespace
