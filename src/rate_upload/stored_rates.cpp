#include "rate_upload/stored_rates.h"

#include <new>

namespace {

constexpr std::size_t kLongestKey = 255;
constexpr uint32_t kCodesOfPiece = 1024;
constexpr std::size_t kRecordsOfPiece = 1024;
constexpr int kLongWalk = 64;  // rates passed by before a code gets an index by date

/// Takes those of the date off the front, but for what cannot be superseded.
void supersede(stored_rate*& first, int64_t date) {
  stored_rate** place = &first;
  while (*place && (*place)->effective_date == date) {
    stored_rate** const next = &(*place)->next;
    if ((*place)->stays) {
      place = next;
    } else {
      *place = *next;
    }
  }
}

}  // namespace

stored_rates::code_rates* stored_rates::at(uint32_t place) const {
  return &codes_[(place - 1) / kCodesOfPiece][(place - 1) % kCodesOfPiece];
}

stored_rates::code_rates* stored_rates::find(std::string_view code, uint32_t hash) const {
  const uint32_t place =
      slots_.find(hash, [&](uint32_t other) { return texts_.holds(at(other)->code, code); });
  return place == 0 ? nullptr : at(place);
}

stored_rates::code_rates* stored_rates::add_code(std::string_view code, uint32_t hash) {
  const bool has_piece = codes_.size() * kCodesOfPiece > code_count_;
  text_pool::place where{};
  if (!slots_.make_room() || (!has_piece && !import_piece_add(codes_, kCodesOfPiece)) ||
      !texts_.add(code, where)) {
    return nullptr;
  }
  slots_.add(hash, ++code_count_);
  return new (at(code_count_)) code_rates{nullptr, nullptr, where};
}

stored_rate* stored_rates::make(std::string_view rate_id, int64_t effective_date, bool stays) {
  text_pool::place where{};
  if (records_left_ == 0) {
    if (!import_piece_add(records_, kRecordsOfPiece)) {
      return nullptr;
    }
    records_left_ = kRecordsOfPiece;
  }
  if (!texts_.add(rate_id, where)) {
    return nullptr;
  }
  stored_rate* const place = &records_.back()[kRecordsOfPiece - records_left_--];
  return new (place) stored_rate{nullptr, effective_date, stays, texts_.at(where)};
}

/// Gives a code with many rates an index by date, so that no walk along them is long.
void stored_rates::sort_by_dates(code_rates& rates) {
  date_rates& dates = dates_.emplace_back();
  for (stored_rate* rate = rates.first; rate; rate = rate->next) {
    dates.try_emplace(dates.end(), rate->effective_date, rate);
  }
  for (const auto& [date, first] : dates) {
    stored_rate* last = first;
    while (last->next && last->next->effective_date == date) {
      last = last->next;
    }
    last->next = nullptr;
  }
  rates.dates = &dates;
}

/// Puts the rate before the first of the code that is not earlier.
void stored_rates::link(code_rates& rates, stored_rate* rate) {
  stored_rate** place = &rates.first;
  int walked = 0;
  while (!rates.dates && *place && (*place)->effective_date < rate->effective_date) {
    if (++walked > kLongWalk) {
      sort_by_dates(rates);
    } else {
      place = &(*place)->next;
    }
  }
  if (rates.dates) {
    place = &rates.dates->try_emplace(rate->effective_date, nullptr).first->second;
  }
  rate->next = *place;
  *place = rate;
}

/// The first rate of the code, or null.
stored_rate** stored_rates::first_of(code_rates& rates) {
  if (!rates.dates) {
    return &rates.first;
  }
  while (!rates.dates->empty() && !rates.dates->begin()->second) {
    rates.dates->erase(rates.dates->begin());
  }
  return rates.dates->empty() ? nullptr : &rates.dates->begin()->second;
}

bool stored_rates::add(std::string_view code, std::string_view rate_id, int64_t effective_date,
                       int64_t now) try {
  // The length is an 8-bit count: see the header.
  const std::string_view key = code.substr(0, code.size() % (kLongestKey + 1));
  const uint32_t hash = keyed_slots::hash(key);
  code_rates* rates = find(key, hash);
  if (!rates && !(rates = add_code(key, hash))) {
    return false;
  }
  stored_rate* const rate = make(rate_id, effective_date, code.size() > kLongestKey);
  if (!rate) {
    return false;
  }
  if (stored_rate** const first = first_of(*rates); first && *first) {
    const int64_t first_date = (*first)->effective_date;
    if (first_date > effective_date && now > first_date && !rate->stays) {
      return true;
    }
    if (first_date < effective_date && now > effective_date) {
      supersede(*first, first_date);
    }
  }
  link(*rates, rate);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}
