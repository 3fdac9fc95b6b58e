/// The stored rates of an import's rate table: by code, and of a code by effective date. Of rates
/// in force only the latest count. Belongs to the thread of its job.
///
///     slots --> code ---> rate --> rate --> ...         by date; of equal dates the newest first
///               code ---> date --> rate --> rate        where a code has rates of many dates
///                         date --> rate
///
/// Bytes (x86-64) of a code with one rate: 56, its slot, and the texts of both.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string_view>
#include <vector>

#include "rate_upload/keyed_slots.h"
#include "rate_upload/text_pool.h"

struct stored_rate {
  stored_rate* next;       ///< not earlier
  int64_t effective_date;  ///< seconds since the epoch
  bool stays;              ///< it cannot be superseded: see stored_rates::add
  const char* rate_id;     ///< as the database wrote it
};

class stored_rates {
 public:
  /// Takes in a rate and removes what is superseded, judged at `now`: a rate in force removes those
  /// of the code's first date when that is earlier; one earlier than a first rate in force does not
  /// stay itself. False when memory runs out.
  ///
  /// The length of a code is an 8-bit count: one of 256 digits has none, one of 300 is known by its
  /// first 44. Such a code's rates are never superseded.
  [[nodiscard]] bool add(std::string_view code, std::string_view rate_id, int64_t effective_date,
                         int64_t now);

  [[nodiscard]] bool empty() const { return code_count_ == 0; }

  /// Calls `look` with each rate of exactly this code in their order, while it returns true.
  template <class Look>
  void look_through(std::string_view code, Look look) const {
    const code_rates* const rates = find(code, keyed_slots::hash(code));
    if (!rates) {
      return;
    }
    if (!rates->dates) {
      (void)look_along(rates->first, look);
      return;
    }
    for (const auto& [date, first] : *rates->dates) {
      if (!look_along(first, look)) {
        return;
      }
    }
  }

 private:
  using date_rates = std::map<int64_t, stored_rate*>;

  struct code_rates {
    stored_rate* first;  ///< unused once there are dates
    date_rates* dates;   ///< or null
    text_pool::place code;
  };

  template <class Look>
  static bool look_along(const stored_rate* rate, Look& look) {
    while (rate && look(*rate)) {
      rate = rate->next;
    }
    return rate == nullptr;
  }

  [[nodiscard]] code_rates* at(uint32_t place) const;
  [[nodiscard]] code_rates* find(std::string_view code, uint32_t hash) const;
  [[nodiscard]] code_rates* add_code(std::string_view code, uint32_t hash);
  [[nodiscard]] stored_rate* make(std::string_view rate_id, int64_t effective_date, bool stays);
  static stored_rate** first_of(code_rates& rates);
  void link(code_rates& rates, stored_rate* rate);
  void sort_by_dates(code_rates& rates);

  keyed_slots slots_;
  text_pool texts_;
  std::vector<import_items<code_rates>> codes_;  ///< pieces of a slab, kCodesOfPiece each
  uint32_t code_count_ = 0;
  std::vector<import_items<stored_rate>> records_;  ///< the same
  std::size_t records_left_ = 0;                    ///< unused ones of the last piece
  std::deque<date_rates> dates_;
};
