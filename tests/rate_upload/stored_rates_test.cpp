#include "rate_upload/stored_rates.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int64_t kNow = 1000;

/// The rates of one code as a plain list.
struct plain_list {
  struct entry {
    int64_t date;
    bool stays;
    std::string id;
  };

  void add(const entry& rate) {
    const int64_t first = rates.empty() ? rate.date : rates[0].date;
    if (rate.date < first && first < kNow && !rate.stays)
      return;
    if (rate.date > first && rate.date < kNow)
      std::erase_if(rates, [&](const entry& r) { return r.date == first && !r.stays; });
    rates.insert(std::ranges::lower_bound(rates, rate.date, {}, &entry::date), rate);
  }

  std::vector<entry> rates;
};

TEST(stored_rates, of_those_in_force_only_the_latest_are_kept_of_any_number_of_dates) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  for (const unsigned dates : {3U, 20U, 3000U, 3U, 3U}) {
    stored_rates rates;
    plain_list expected;
    const int count = dates == 3 ? 8 : 3000;
    for (int id = 0; id < count; ++id) {
      const int64_t date = kNow + int64_t(random() % dates) - dates / 3;
      // A code of 258 digits is known by its first two; a longer one than the rates are of, by
      // none.
      const bool stays = random() % 64 == 0;
      ASSERT_TRUE(
          rates.add(stays ? "44" + std::string(256, '5') : "44", std::to_string(id), date, kNow));
      ASSERT_TRUE(rates.add("441", "another", date, kNow));
      expected.add({date, stays, std::to_string(id)});
    }
    std::string kept, in_list;
    rates.look_through("44", [&](const stored_rate& rate) {
      kept += rate.rate_id + std::string(" ");
      return true;
    });
    for (const plain_list::entry& rate : expected.rates)
      in_list += rate.id + " ";
    ASSERT_EQ(kept, in_list) << "of " << dates << " dates";
  }
}

}  // namespace
