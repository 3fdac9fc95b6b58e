/// The databases that the daemon serves: the list file `qvn_db_info.conf` as a table of `db_info`
/// entries, with the number of jobs of each kind that run on each.
///
/// The table is guarded by the database list lock of the core record. Loading runs in the main
/// thread at the start and in a console thread later.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "base/qvn_hash.h"
#include "core/qvn_core_ctrl.h"
#include "db/qvn_poll_budget.h"

struct qvn_setting;

/// One served database; owned by the database table. All texts are set and the port is above 1023.
struct db_info {
  std::string host;  ///< numeric IPv4 address
  uint16_t port = 0;
  std::string name;
  std::string user;
  std::string password;
  std::string conninfo;            ///< libpq connection string made of the five
  uint16_t rerate_count = 0;       ///< rerate jobs started and not yet finished
  uint16_t rate_upload_count = 0;  ///< rate import jobs started and not yet finished
  poll_record polling;             ///< how it has answered the poller
};

/// A database's port lies above this.
inline constexpr uint16_t kHighestSystemPort = 1023;

/// A section's name in the list file is cut there, and then not found again.
inline constexpr std::size_t kMostSectionCharacters = 99;

/// Which of the two counts of an entry a job belongs to.
enum class job_kind : int32_t { rerate = 0, rate_upload = 1 };

/// "host-database name", at most 255 characters: the key of an entry, and the label by which jobs
/// refer to their database. The port is not part of it.
struct qvn_db_key {
  char text[256];
};
[[nodiscard]] qvn_db_key qvn_db_key_make(const std::string& host, const std::string& name);

/// The served databases by their keys, in the order of the keyed table. Owns them.
class database_table {
 public:
  class iterator {
   public:
    explicit iterator(const qvn_hash_element* element) : element_(element) {}
    db_info& operator*() const { return *reinterpret_cast<db_info*>(element_->data); }
    iterator& operator++() {
      element_ = element_->next;
      return *this;
    }
    bool operator==(const iterator&) const = default;

   private:
    const qvn_hash_element* element_;
  };

  database_table() { qvn_hash_init(&table_); }
  ~database_table() { clear(); }
  database_table(const database_table&) = delete;
  database_table& operator=(const database_table&) = delete;

  [[nodiscard]] iterator begin() const { return iterator(table_.first); }
  [[nodiscard]] iterator end() const { return iterator(nullptr); }

  /// Null when there is none.
  [[nodiscard]] db_info* find(const char* key) const;

  /// Takes an entry whose key is not there yet; false, with the entry freed, when memory runs out.
  [[nodiscard]] bool insert(const char* key, std::unique_ptr<db_info> entry);

  /// Frees every entry.
  void clear();

 private:
  qvn_hash_table table_;
};

/// Makes the core record's table, empty. 0, or -1, logged, when memory runs out.
[[nodiscard]] int32_t qvn_db_conf_init() QVN_EXCLUDES(g_core_ctrl->db_list_lock);

/// Reads the list file into the table. 0, or -1, logged, when the file cannot be read or any
/// section is invalid; the valid ones are in the table all the same.
[[nodiscard]] int32_t load_db_info() QVN_EXCLUDES(g_core_ctrl->db_list_lock);

/// Empties the table and reads the file again; the job counts start from 0. Jobs that run are not
/// touched. Returns as load_db_info.
[[nodiscard]] int32_t reload_db_info() QVN_EXCLUDES(g_core_ctrl->db_list_lock);

/// Adds one entry. 0 when added or there already; -1, logged, when invalid or without memory.
int32_t db_info_add(const std::string& host, uint16_t port, const std::string& name,
                    const std::string& user, const std::string& password)
    QVN_REQUIRES(g_core_ctrl->db_list_lock);

/// Frees an entry that is in no table and sets the pointer to null.
void db_info_free(db_info** entry);

/// Counts one job of that kind as finished; never below 0. Nothing for an unknown key.
void db_info_task_sub(const std::string& key, job_kind kind)
    QVN_EXCLUDES(g_core_ctrl->db_list_lock);

/// The keys of a section, every one of which is required.
[[nodiscard]] std::span<const qvn_setting> qvn_db_settings();

/// Handler of a section of the list file: keeps one value for the section that is being read. 0, or
/// -1, with a NOTICE, to stop the section.
int32_t read_db_config(const char* key, const char* value) QVN_REQUIRES(g_core_ctrl->db_list_lock);
