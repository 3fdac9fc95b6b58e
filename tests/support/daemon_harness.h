/// The real executable in a temporary installation of its own, with conf/, log/ and run/ beside it.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

#include "support/shell.h"
#include "support/temp_dir.h"

namespace support {

/// What a daemon holds at one moment.
struct Holdings {
  long memory;  ///< resident, kB
  long descriptors;
  long threads;
};

/// Daemons become children of the test program when their starter leaves, so their end can be
/// waited for. Whatever a sanitizer reports in it is a test failure.
class DaemonHarness {
 public:
  /// Installs the executable with a main configuration and an empty database list.
  DaemonHarness();
  /// Kills the daemon if it still runs, and removes the installation.
  ~DaemonHarness();

  const std::filesystem::path& path() const { return folder_.path(); }
  std::filesystem::path pid_file() const { return path() / "run/qvn_web_helper.pid"; }

  /// Settings of the section CLI beside its port, for the next write_main_conf.
  void set_console(const std::string& settings) { console_settings_ = settings; }
  /// The port of 127.0.0.1 on which the console listens; each daemon has its own.
  int console_port() const { return console_port_; }

  /// The local time of processes that are started from now on; UTC without a word.
  void set_time_zone(const std::string& zone) { time_zone_ = zone; }

  /// Writes conf/qvn_web_helper.conf, with `text` and then the section CLI, and
  /// conf/qvn_db_info.conf.
  void write_main_conf(const std::string& text) const;
  void write_databases(int port, const std::vector<std::string>& names) const;
  void write_database_list(const std::string& text) const;

  /// Runs the executable until it ends; a daemon that it leaves behind goes on.
  Ending run(const std::vector<std::string>& arguments);
  /// Starts the executable as a child with these as its standard streams. It ends with the test
  /// program; the caller waits for it.
  pid_t start_with(const std::vector<std::string>& arguments, int in, int out, int err) const;
  /// Starts it as a daemon, whatever becomes of it.
  void launch();
  /// Starts it as a daemon, or in the foreground, and waits until its modules run.
  void start();
  void start_foreground();

  /// Sends a signal to the daemon, or waits for its end.
  void send(int signal) const;
  Ending wait_end();

  /// The log file; in the foreground what the daemon wrote to standard error.
  std::string log() const;
  /// Waits until the log holds the text this many times.
  bool wait_log(const std::string& text, int times = 1) const;

  pid_t pid() const { return pid_; }
  bool runs() const;
  Holdings holdings() const;

 private:
  pid_t spawn(const std::vector<std::string>& arguments);
  Ending ending(pid_t process, int number) const;
  std::filesystem::path output(const char* stream, int number) const;
  void expect_running();

  TempDir folder_;
  int console_port_;
  std::string console_settings_;
  std::string time_zone_ = "UTC";
  int spawned_ = 0;        ///< processes started so far; each has its own output files
  pid_t pid_ = -1;         ///< the daemon
  int daemon_number_ = 0;  ///< which of the started processes the daemon is
  bool foreground_ = false;
};

/// The database's section of a database list.
std::string database_section(const std::string& section, int port, const std::string& name);

/// How often `text` occurs in `whole`.
int count_of(const std::string& whole, const std::string& text);

}  // namespace support
