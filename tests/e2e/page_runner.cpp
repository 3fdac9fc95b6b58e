#include "e2e/page_runner.h"

#include <fnmatch.h>
#include <gtest/gtest.h>

#include "support/shell.h"

namespace e2e {
namespace {

using support::Block;
using support::replace_all;

/// One of several blanks or dashes, no blank at a line's begin or end, no empty line.
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

bool is_program(const Block& block) {
  return block.kind == "sql" || block.kind == "sh" || block.kind == "bash";
}

}  // namespace

PageRunner::PageRunner(const support::DaemonHarness& daemon, const std::string& database,
                       Widths widths, const std::string& upload)
    : daemon_(daemon), database_(database), widths_(widths), upload_(daemon.path() / upload) {
  std::filesystem::create_directories(upload_);
}

void PageRunner::run(const Block& block) {
  SCOPED_TRACE(block.kind + "\n" + block.text);
  const size_t name = block.kind.find(' ');
  if (name != std::string::npos) {
    const bool deck = block.kind.starts_with("csv ");
    support::write_file((deck ? upload_ : daemon_.path()) / block.kind.substr(name + 1),
                        block.text);
  } else if (is_program(block)) {
    asked_ = block;
    output_ = execute(block);
  }
}

void PageRunner::run_and_wait(const Block& block) {
  run(block);
  if (inserts_job(block))
    wait_for_jobs();
}

void PageRunner::expect_shown(const std::string& text) {
  ASSERT_TRUE(is_program(asked_));
  // One failure is enough to wait for.
  const int patience = testing::Test::HasFailure() ? 0 : 10;
  const bool shown =
      is_shown(text) ||
      support::wait_until([&] { return output_ = execute(asked_), is_shown(text); }, patience);
  EXPECT_TRUE(shown) << asked_.text << "shows:\n" << output_ << "instead of:\n" << text;
}

bool inserts_job(const Block& block) {
  return block.text.find("_task (") != std::string::npos;
}

void PageRunner::wait_for_jobs() const {
  if (database_.empty())
    return;
  support::Session portal = cluster().connect(database_);
  const char* const ended =
      "SELECT bool_and(status >= 4) FROM (SELECT status FROM rate_upload_task"
      " UNION ALL SELECT status FROM rerate_cdr_task) job";
  EXPECT_TRUE(support::wait_until([&] { return portal.value(ended) != "f"; }));
}

std::string PageRunner::real(std::string text) const {
  replace_all(text, "/opt/qvn_web_helper", daemon_.path());
  replace_all(text, "/var/portal/upload", upload_);
  replace_all(text, "/127.0.0.1/4410", "/127.0.0.1/" + std::to_string(daemon_.console_port()));
  return text;
}

std::string PageRunner::execute(const Block& block) const {
  support::write_file(daemon_.path() / "block", real(block.text));
  std::string command;
  if (!database_.empty())
    command = "export PGTZ=UTC PGHOST=127.0.0.1 PGPORT=" + std::to_string(cluster().port()) +
              " PGUSER=" + support::TestCluster::kUser +
              " PGPASSWORD=" + support::TestCluster::kPassword + " PGDATABASE=" + database_ +
              " PATH=" QVN_PG_BINDIR ":$PATH; ";
  // A page waits for what a daemon that fails never does.
  const char* const limited = "timeout 100 ";
  if (block.kind == "sql")
    command += std::string(limited) + "psql -Xq -v ON_ERROR_STOP=1 " +
               (widths_ == Widths::exact ? "-At -F ' | ' " : "") + "-f block";
  else
    command += limited + block.kind + " -e block";
  const support::Ending ending = support::shell(daemon_.path(), command);
  std::string output = ending.out + ending.err;
  EXPECT_TRUE(ending.status == 0 || block.kind != "sql") << output;
  replace_all(output, daemon_.path(), "/opt/qvn_web_helper");
  return output;
}

bool PageRunner::is_shown(const std::string& text) const {
  std::string pattern = text, output = output_;
  if (widths_ == Widths::free) {
    pattern = squeezed(pattern);
    output = squeezed(output);
  }
  for (const char* special : {"\\", "[", "?", "*"})
    replace_all(pattern, special, std::string("\\") + special);
  replace_all(pattern, "...", "*");
  return fnmatch(pattern.c_str(), output.c_str(), 0) == 0;
}

}  // namespace e2e
