/// The rate data records that hang in the payload lists of the prefix trees, their free callbacks,
/// the removal of single rates, and the tests of rate and time-zone texts.
///
/// Every payload list is circular and doubly linked through its records; the tree node's `items` is
/// the first record and `item_count` their number. A record and its texts are one piece of a slab.
/// Records and trees belong to the thread of their job; nothing here locks.
///
/// A text that is absent is null. Bytes (x86-64): 81 a rate plus its texts, rounded up
/// to eight, and 88 at least.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "rate/rp_hash_owner.h"

/// The tolerance below which a rate or an amount of money counts as zero.
inline constexpr float BIILING_EPSINON = 1e-6F;

/// Where a text lies that is kept behind its record: in 2 bytes instead of a pointer's 8. Null when
/// absent. Set by the record's maker.
class near_text {
 public:
  near_text() = default;
  near_text(const near_text&) = delete;  // a copy would lie elsewhere
  near_text& operator=(const near_text&) = delete;

  operator const char*() const {
    const char* const place = reinterpret_cast<const char*>(this) + (distance_ & kReach);
    if (distance_ <= kReach) {
      return distance_ == 0 ? nullptr : place;
    }
    const char* text = nullptr;
    std::memcpy(&text, place, sizeof(const char*));
    return text;
  }

  /// Leads to a text behind this place, null for none. One that begins beyond the reach is led to
  /// by way of `pointer`, room for a pointer within the reach.
  void lead_to(const char* text, char* pointer);

  /// Bytes from this place to where the farthest text may begin.
  static constexpr uint16_t kReach = 0x7fff;

 private:
  uint16_t distance_ = 0;  ///< from this place; 0: no text; above kReach: of a pointer to it
};

/// One rate of a rate table. Outer tree key: rate table id; inner key: code. The list is sorted by
/// effective date, ascending; of equal dates the newest insertion comes first. Imports keep theirs
/// elsewhere.
struct rate_node {
  uint16_t seconds;        ///< seconds that the rate is charged for, 60 for a rate per minute
  uint16_t interval;       ///< billing increment, seconds
  uint16_t min_time;       ///< shortest billed time, seconds
  uint16_t grace_time;     ///< a shorter call is free, any other is billed whole; seconds
  int64_t effective_date;  ///< first second of validity
  int64_t end_date;        ///< last second of validity; 0: open
  rate_node* prev;
  rate_node* next;
  float rate;                 ///< -1 when absent, as the three below
  float intra_rate;           ///< within one state
  float inter_rate;           ///< between states
  float local_rate;           ///< within one local area
  float setup_fee;            ///< per call
  int32_t zone_minutes;       ///< minutes of the zone offset, with its sign
  int32_t zone_hours;         ///< hours of the zone offset, with its sign
  near_text code;             ///< dialled code
  near_text code_name;        ///< destination
  near_text country;          ///< its country
  near_text rate_id;          ///< the row's id
  near_text rate_table_id;    ///< the rate table it belongs to
  near_text time_profile_id;  ///< hours in which it applies, or null: always
  char rate_type;             ///< first character of the column
  char texts[7];              ///< the texts begin here, and go on behind the record
};

/// One code of the system code deck. Outer tree key: code deck id; inner key: code. Of several
/// entries of one code the one that stands first by code id, in byte order, is kept; of equal ids
/// the newest.
struct code_deck_node {
  const char* code_id;
  const char* code;
  const char* code_deck_id;
  const char* country;
  const char* name;
  code_deck_node* prev;
  code_deck_node* next;
};

/// One prefix of the US jurisdiction table. Outer tree key: jurisdiction country id; inner key:
/// prefix. Sorted by id in byte order; of equal ids the newest comes first.
struct jurisdiction_prefix_node {
  const char* id;
  const char* jurisdiction_id;
  jurisdiction_prefix_node* next;
  jurisdiction_prefix_node* prev;
};

/// One time profile. Tree key: time profile id; a node holds exactly one record.
struct time_profile_node {
  uint16_t type;
  uint16_t start_week;  ///< 1 Monday to 7 Sunday
  uint16_t end_week;
  int32_t time_zone;  ///< hours east of UTC
  const char* time_profile_id;
  int32_t start_hour;
  int32_t start_minute;
  int32_t start_second;
  int32_t end_hour;
  int32_t end_minute;
  int32_t end_second;
};

/// A superseded rate that waits to be removed; newest request first.
struct expire_rate_req {
  const char* code;
  const char* rate_id;
  const char* rate_table_id;
  uint64_t reserved;  ///< always 0
  expire_rate_req* next;
};

/// The texts of a rate record; an empty one is stored as absent.
struct rate_texts {
  std::string_view code{};
  std::string_view code_name{};
  std::string_view country{};
  std::string_view rate_id{};
  std::string_view rate_table_id{};
  std::string_view time_profile_id{};
};

/// Make a zeroed record with copies of its texts, owned by the caller until it is linked; null when
/// memory runs out.
[[nodiscard]] rate_node* rate_node_create(const rate_texts& texts);
[[nodiscard]] code_deck_node* code_deck_node_create(std::string_view code_id, std::string_view code,
                                                    std::string_view code_deck_id,
                                                    std::string_view country,
                                                    std::string_view name);
[[nodiscard]] jurisdiction_prefix_node* jurisdiction_prefix_node_create(
    std::string_view id, std::string_view jurisdiction_id);
[[nodiscard]] time_profile_node* time_profile_node_create(std::string_view time_profile_id);

/// Free a record that is in no list; nothing for null.
void rate_node_drop(rate_node* rate);
void jurisdiction_prefix_node_drop(jurisdiction_prefix_node* prefix);
void time_profile_node_drop(time_profile_node* profile);

/// Link a record into its place of the node's sorted list and count it; the node owns it from then
/// on. A time profile takes the place of the one that the node held, which is freed; of two code
/// deck entries the one that stands later in the order is freed.
void rate_node_link(rp_hash_node* node, rate_node* rate);
void code_deck_node_link(rp_hash_node* node, code_deck_node* entry);
void jurisdiction_prefix_node_link(rp_hash_node* node, jurisdiction_prefix_node* prefix);
void time_profile_node_link(rp_hash_node* node, time_profile_node* profile);

/// Free callbacks for the trees. With a null argument the rate and jurisdiction deleters free the
/// whole list; with a text they remove the first record of that rate id or id, 0 when there is
/// none.
int32_t delete_rate_node(rp_hash_node* node, const void* rate_id);
int32_t delete_jurisdiction_prefix_node(rp_hash_node* node, const void* id);

/// Frees the list's first record, with a text only if that is its code id; 0 when nothing was
/// freed. The rest of the list is not relinked: meant for destroying a tree whose nodes hold one
/// entry each.
int32_t delete_code_deck_node(rp_hash_node* node, const void* code_id);

/// Frees the node's one record; 0 when it has none.
int32_t delete_time_profile_node(rp_hash_node* node, const void* ignored);

/// Owned trees of each record.
using rate_node_tree = rp_hash_owner<delete_rate_node>;
using code_deck_node_tree = rp_hash_owner<delete_code_deck_node>;
using jurisdiction_prefix_node_tree = rp_hash_owner<delete_jurisdiction_prefix_node>;
using time_profile_node_tree = rp_hash_owner<delete_time_profile_node>;

/// Pushes a removal request for each of `count` records from `first` on that takes effect exactly
/// at `effective_date`. Stops, with an ERROR line, when memory runs out.
void create_del_expire_rate(const rate_node* first, uint64_t count, expire_rate_req** requests,
                            int64_t effective_date);

/// Removes one rate from the tree `root` and undoes the insertion of its rate table id. The slot is
/// a copy: the caller's stays as it is, so the rate table's first node is never freed here. The
/// last argument is ignored.
void delete_expire_rate(rp_hash_node* root, const char* code, const char* rate_id,
                        const char* rate_table_id, uint64_t ignored);

/// Whole hours of a time-zone text of the form "+0100"; 0 for anything that is not in the table.
/// Minus four hours is not.
[[nodiscard]] int32_t get_timezone_from_str(const char* text);

/// True or 1 for a rate text: a decimal digit followed by digits and "."; else false or 0.
[[nodiscard]] bool qvn_is_rate(std::string_view text);
[[nodiscard]] int32_t qvn_is_rate(const char* text);
