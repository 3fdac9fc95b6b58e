// Scenarios that a portal developer can read and write: the pages of tests/pages.
//
// What stands before a page's first heading is done in each of its scenarios. Each heading of the
// second level is a scenario with a database of its own, or, where a table stands below it, one for
// each of the table's rows: {column} in its blocks is the row's cell, {database} the database's
// name, {id} a number of its own. What stands before the block of the first text is set up in all
// of them; then one daemon starts, and when all jobs have ended the rest is run and compared. A
// page without a "sql" block has neither databases nor a daemon: each of its scenarios has an
// installation of its own. A block "TZ" names the daemon's time zone; each zone has
// a daemon.
#include <gtest/gtest.h>

#include "e2e/page_runner.h"

namespace {

using support::Block;
using support::replace_all;
using support::Section;

struct Scenario {
  std::string heading;
  std::string name;  ///< also the database's
  std::string time_zone;
  std::vector<Block> blocks;
  size_t next = 0;  ///< block; at first the one that shows the first text
};

/// The blocks with the row's cells filled in.
Scenario filled_in(std::vector<Block> blocks, const support::TableRow& row,
                   const std::string& heading, const std::string& name, size_t number) {
  Scenario scenario{heading, name, "UTC", {}, 0};
  for (Block& block : blocks) {
    for (std::string* part : {&block.kind, &block.text}) {
      for (const auto& [column, cell] : row)
        replace_all(*part, "{" + column + "}", cell);
      replace_all(*part, "{database}", name);
      replace_all(*part, "{id}", std::to_string(1000 + 10 * number));
    }
    if (block.kind == "text" && scenario.next == 0)
      scenario.next = scenario.blocks.size() - 1;
    // An empty cell may be a text without a line.
    if (block.kind == "text" && block.text == "\n")
      block.text.clear();
    if (block.kind == "TZ")
      scenario.time_zone = block.text.substr(0, block.text.find('\n'));
    scenario.blocks.push_back(block);
  }
  EXPECT_GT(scenario.next, 0U) << heading << " shows nothing";
  return scenario;
}

std::vector<Scenario> scenarios(const std::string& page, const std::string& name) {
  std::vector<Scenario> all;
  const std::vector<Section> parts = support::sections(page);
  for (size_t i = 1; i < parts.size(); i++) {
    std::vector<Block> blocks = parts[0].blocks;
    blocks.insert(blocks.end(), parts[i].blocks.begin(), parts[i].blocks.end());
    std::vector<support::TableRow> rows(1);
    if (!parts[i].tables.empty())
      rows = parts[i].tables[0].rows;
    for (size_t row = 0; row < rows.size(); row++)
      all.push_back(filled_in(blocks, rows[row],
                              parts[i].heading + ", row " + std::to_string(row + 1),
                              name + "_" + std::to_string(all.size()), all.size()));
  }
  return all;
}

class Pages : public testing::TestWithParam<std::filesystem::path> {};

void set_up(e2e::PageRunner& runner, const Scenario& scenario) {
  SCOPED_TRACE(scenario.heading);
  for (size_t i = 0; i < scenario.next; i++)
    runner.run(scenario.blocks[i]);
}

/// Runs and compares, when the jobs so far have ended, until the scenario is at its end or has
/// inserted another job. Whether there is more.
bool go_on(e2e::PageRunner& runner, Scenario& scenario) {
  SCOPED_TRACE(scenario.heading);
  for (bool waits = true; scenario.next < scenario.blocks.size(); scenario.next++) {
    const Block& block = scenario.blocks[scenario.next];
    if (waits)
      runner.wait_for_jobs();
    if (block.kind == "text")
      runner.expect_shown(block.text);
    else
      runner.run(block);
    waits = false;
    if (e2e::inserts_job(block))
      return ++scenario.next, true;
  }
  return false;
}

void run_program(Scenario scenario) {
  const support::DaemonHarness installation;
  e2e::PageRunner runner(installation, "", e2e::Widths::exact);
  set_up(runner, scenario);
  go_on(runner, scenario);
}

void run_jobs(std::vector<Scenario> all) {
  std::vector<std::string> databases;
  databases.reserve(all.size());
  for (const Scenario& scenario : all)
    databases.push_back(scenario.name);
  auto daemon = e2e::daemon_for(databases);
  daemon->set_time_zone(all[0].time_zone);
  std::vector<e2e::PageRunner> runners;
  for (const Scenario& scenario : all) {
    runners.emplace_back(*daemon, scenario.name, e2e::Widths::exact, "upload/" + scenario.name);
    set_up(runners.back(), scenario);
  }
  daemon->start();
  for (bool more = true; more;) {
    more = false;
    for (size_t i = 0; i < all.size(); i++)
      more |= go_on(runners[i], all[i]);
  }
  EXPECT_TRUE(daemon->runs());
}

TEST_P(Pages, ShowWhatHappens) {
  const std::string page = support::read_file(GetParam());
  std::map<std::string, std::vector<Scenario>> by_time_zone;
  for (Scenario& scenario : scenarios(page, GetParam().stem())) {
    if (page.find("```sql\n") == std::string::npos)
      run_program(scenario);
    else
      by_time_zone[scenario.time_zone].push_back(scenario);
  }
  for (const auto& [zone, all] : by_time_zone)
    run_jobs(all);
}

std::vector<std::filesystem::path> pages() {
  return {std::filesystem::directory_iterator(QVN_SOURCE_DIR "/tests/pages"), {}};
}

INSTANTIATE_TEST_SUITE_P(All, Pages, testing::ValuesIn(pages()),
                         [](const auto& page) { return page.param.stem().string(); });

}  // namespace
