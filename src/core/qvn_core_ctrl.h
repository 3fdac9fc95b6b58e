/// The one record that every module reads: settings, directories, the served databases and their
/// lock.
///
/// `main` makes it before anything else; the settings and directories are written before the first
/// thread starts and only read afterwards, so they need no lock. The database table is guarded by
/// `db_list_lock`. Texts that are not set are empty.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <type_traits>

#include "base/qvn_mutex.h"

class database_table;

/// The name in messages and in the names of the pid and log files.
inline constexpr const char* kProgramName = "qvn_web_helper";

/// The files in the configuration directory.
inline constexpr const char* kMainConfFile = "qvn_web_helper.conf";
inline constexpr const char* kDbConfFile = "qvn_db_info.conf";

/// Bytes of a dotted IPv4 address with its NUL.
inline constexpr std::size_t kAddressSize = 16;

struct qvn_core_ctrl {
  uint32_t log_level = 0;     ///< 0 to 7; stored as configured, also when out of range
  uint32_t max_log_size = 0;  ///< bytes; 0: never configured

  char cli_listen_ip[kAddressSize] = {};  ///< console listen address
  uint16_t cli_listen_port = 0;           ///< console listen port
  uint16_t cli_connection_limit = 0;      ///< most console connections at once
  uint16_t cli_connection_expires = 0;    ///< idle seconds before a console connection is dropped
  std::string cli_login_user;             ///< console login user
  std::string cli_login_pwd;              ///< console login password

  char lrn_local_ip[kAddressSize] = {};  ///< local address of the number lookup; not set yet
  uint16_t lrn_local_port = 0;           ///< local port of the number lookup; not set yet

  /// The database list lock. The poller holds it for a whole cycle, connections included; under it
  /// only the mutex of one job module may be taken. Served in order of arrival.
  qvn_fair_mutex db_list_lock;
  /// The served databases, made by `db/`; shared only in that the record can end it without knowing
  /// its type. Null until qvn_core_init.
  std::shared_ptr<database_table> db_table QVN_GUARDED_BY(db_list_lock);

  uint16_t max_rerate_task = 0;       ///< most rerate jobs waiting or running
  uint16_t max_rate_upload_task = 0;  ///< most rate import jobs waiting or running

  std::string install_dir;  ///< directory of the executable, without a trailing slash
  std::string conf_dir;     ///< install_dir + "/conf/"
  std::string log_dir;      ///< install_dir + "/log/"

  struct stat pid_file {};  ///< of the pid file once it is locked; all 0 before
};

/// Null before `main` makes it and after qvn_core_free.
extern qvn_core_ctrl* g_core_ctrl;

/// Stores a number, which fits, in a field of the record.
template <auto Field>
void qvn_core_store(uint32_t number) {
  auto& field = g_core_ctrl->*Field;
  field = static_cast<std::remove_reference_t<decltype(field)>>(number);
}

/// Whether this is the daemon's own pid file, which must not be opened: closing it again drops the
/// lock. False without a record. Any thread.
[[nodiscard]] bool qvn_is_pid_file(const struct stat& status);
