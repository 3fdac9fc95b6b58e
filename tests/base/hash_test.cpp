#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <list>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "base/failing_new.h"
#include "base/qvn_hash.h"

namespace {

using testing::ElementsAre;

/// A table that is cleared after the test.
struct owned_table : qvn_hash_table {
  owned_table() { qvn_hash_init(this); }
  ~owned_table() { qvn_hash_clear(this); }
  owned_table(const owned_table&) = delete;
  owned_table& operator=(const owned_table&) = delete;
};

std::vector<std::string> keys_in_order(const qvn_hash_table& table) {
  std::vector<std::string> keys;
  for (const qvn_hash_element* e = table.first; e != nullptr; e = e->next) {
    const char* key = nullptr;
    qvn_hash_this(e, &key, nullptr, nullptr);
    keys.emplace_back(key);
  }
  return keys;
}

std::string numbered_key(int number) {
  return "key" + std::to_string(number);
}

/// The table's promise in its plainest form: one list of keys, newest element of a bucket first,
/// new buckets at the front; doubling links the old list anew.
class Model {
 public:
  qvn_hash_value insert(const std::string& key, qvn_hash_value value) {
    if (const auto found = values_.find(key); found != values_.end()) {
      const qvn_hash_value stored = found->second;
      if (value == 0) {
        values_.erase(found);
        order_.remove(key);
        buckets_ = values_.empty() ? 0 : buckets_;
      }
      return stored;
    }
    if (value == 0) {
      return 0;
    }
    values_[key] = value;
    grow();
    link(key);
    return 0;
  }

  qvn_hash_value find(const std::string& key) const {
    const auto found = values_.find(key);
    return found == values_.end() ? 0 : found->second;
  }
  uint32_t buckets() const { return buckets_; }
  std::vector<std::string> order() const { return {order_.begin(), order_.end()}; }

 private:
  void grow() {
    if (buckets_ != 0 && values_.size() <= buckets_) {
      return;
    }
    buckets_ = buckets_ == 0 ? 8 : buckets_ * 2;
    const std::list<std::string> old = std::exchange(order_, {});
    for (const std::string& key : old) {
      link(key);
    }
  }
  void link(const std::string& key) {
    auto at = order_.begin();
    for (auto it = order_.begin(); it != order_.end(); ++it) {
      if (bucket_of(*it) == bucket_of(key)) {
        at = it;
        break;
      }
    }
    order_.insert(at, key);
  }
  uint32_t bucket_of(const std::string& key) const {
    uint32_t hash = 0;
    for (const char* byte = key.c_str(); byte <= key.c_str() + key.size(); ++byte) {
      hash = hash ^ ((hash << 3) ^ static_cast<uint32_t>(int32_t{static_cast<int8_t>(*byte)}));
    }
    return (hash & 0x7fffffff) & (buckets_ - 1);
  }

  std::map<std::string, qvn_hash_value> values_;
  std::list<std::string> order_;
  uint32_t buckets_ = 0;
};

/// Links in both directions and every bucket's run of neighbours.
void expect_whole(const qvn_hash_table& table) {
  int32_t elements = 0;
  const qvn_hash_element* previous = nullptr;
  for (const qvn_hash_element* e = table.first; e != nullptr; previous = e, e = e->next) {
    ASSERT_EQ(e->prev, previous);
    ++elements;
  }
  ASSERT_EQ(elements, table.count);
  int32_t in_buckets = 0;
  for (uint32_t i = 0; i < table.htsize; ++i) {
    const qvn_hash_bucket& bucket = table.htable[i];
    ASSERT_EQ(bucket.head == nullptr, bucket.count == 0);
    in_buckets += bucket.count;
  }
  ASSERT_EQ(in_buckets, table.count);
}

TEST(Hash, BehavesAsTheModelUnderRandomOperations) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  owned_table table;
  Model model;
  for (int step = 0; step < 6000; ++step) {
    // Phases of growth and of shrinking, down to an empty table and up again.
    const bool growing = (step / 1000) % 2 == 0;
    const std::string key = "k\xe4" + std::to_string(random() % 150);
    const bool removes = random() % 10 < (growing ? 2 : 9);
    const qvn_hash_value value = removes ? 0 : 1 + random() % 1000;
    ASSERT_EQ(qvn_hash_insert(&table, key.c_str(), value), model.insert(key, value)) << step;
    ASSERT_EQ(qvn_hash_find(&table, key.c_str()), model.find(key)) << step;
    ASSERT_EQ(table.htsize, model.buckets()) << step;
    ASSERT_EQ(keys_in_order(table), model.order()) << step;
    ASSERT_NO_FATAL_FAILURE(expect_whole(table)) << step;
  }
}

TEST(Hash, DoublesWhenMoreElementsThanBuckets) {
  owned_table table;
  std::vector<uint32_t> sizes;
  for (int i = 0; i < 17; ++i) {
    ASSERT_EQ(qvn_hash_insert(&table, numbered_key(i).c_str(), 1), 0U);
    if (sizes.empty() || sizes.back() != table.htsize) {
      EXPECT_EQ(i, sizes.empty() ? 0 : static_cast<int>(sizes.back()));
      sizes.push_back(table.htsize);
    }
  }
  EXPECT_THAT(sizes, ElementsAre(8, 16, 32));
}

// With 8 buckets: "a" and "i" share one, "b" and "j" another.
TEST(Hash, NewestOfABucketIsItsHeadAndNewBucketsComeFirst) {
  owned_table table;
  for (const char* key : {"a", "b", "i", "j"}) {
    ASSERT_EQ(qvn_hash_insert(&table, key, 1), 0U);
  }
  EXPECT_THAT(keys_in_order(table), ElementsAre("j", "b", "i", "a"));
}

TEST(Hash, AnExistingKeyKeepsItsValue) {
  owned_table table;
  EXPECT_EQ(qvn_hash_insert(&table, "key", 7), 0U);
  EXPECT_EQ(qvn_hash_insert(&table, "key", 8), 7U);
  EXPECT_EQ(qvn_hash_find(&table, "key"), 7U);
}

TEST(Hash, ValueZeroRemovesAndTheLastRemovalFreesTheBuckets) {
  owned_table table;
  EXPECT_EQ(qvn_hash_insert(&table, "key", 0), 0U);
  EXPECT_EQ(qvn_hash_insert(&table, "key", 7), 0U);
  EXPECT_EQ(qvn_hash_insert(&table, "other", 0), 0U);
  EXPECT_EQ(qvn_hash_insert(&table, "key", 0), 7U);
  EXPECT_EQ(table.htsize, 0U);
  EXPECT_EQ(table.htable, nullptr);
  EXPECT_EQ(table.first, nullptr);
  EXPECT_EQ(table.count, 0);
}

TEST(Hash, AbsentAndEmptyTablesHoldNothing) {
  owned_table table;
  EXPECT_EQ(qvn_hash_find(nullptr, "key"), 0U);
  EXPECT_EQ(qvn_hash_find_ext(nullptr, "key", 4, 1), 0U);
  EXPECT_EQ(qvn_hash_find(&table, "key"), 0U);
  EXPECT_EQ(qvn_hash_find_ext(&table, "key", 0, 0), 0U);
}

TEST(Hash, LengthAndHashOfAKey) {
  struct row {
    const char* key;
    int32_t keylen;
    uint32_t hash;
  };
  // By hand: h = h ^ (h << 3) ^ c. A byte above 127 brings in its sign.
  for (const row& r : {row{"", 1, 0}, row{"a", 2, 0x61 ^ (0x61 << 3)},
                       row{"\x80", 2, (0xffffff80U ^ (0xffffff80U << 3)) & 0x7fffffffU}}) {
    owned_table table;
    int32_t keylen = 0;
    uint32_t hash = 99;
    EXPECT_EQ(qvn_hash_insert_ext(&table, r.key, 5, &keylen, &hash), 0U);
    EXPECT_EQ(keylen, r.keylen);
    EXPECT_EQ(hash, r.hash);
    EXPECT_EQ(qvn_hash_find(&table, r.key), 5U);
    EXPECT_EQ(qvn_hash_find_ext(&table, r.key, keylen, hash), 5U);
    EXPECT_EQ(qvn_hash_find_ext(&table, r.key, 0, hash + 1), 5U);
    EXPECT_EQ(qvn_hash_find_ext(&table, r.key, keylen, hash + 1), 0U);
  }
}

TEST(Hash, GivenLengthAndHashAreUsedAsTheyAre) {
  owned_table table;
  int32_t keylen = 3;
  uint32_t hash = 12;
  EXPECT_EQ(qvn_hash_insert_ext(&table, "ab", 5, &keylen, &hash), 0U);
  EXPECT_EQ(table.htable[12 % 8].count, 1);
  EXPECT_EQ(qvn_hash_insert_ext(&table, "ab", 6, &keylen, &hash), 5U);
  EXPECT_EQ(qvn_hash_insert_ext(&table, "cd", 6, nullptr, nullptr), 0U);
  EXPECT_EQ(qvn_hash_find(&table, "cd"), 6U);
}

TEST(Hash, ElementShowsItsOwnKeyLengthAndValue) {
  owned_table table;
  char callers_key[] = "key";
  ASSERT_EQ(qvn_hash_insert(&table, callers_key, 9), 0U);
  callers_key[0] = '?';
  const char* key = nullptr;
  int32_t keylen = 0;
  qvn_hash_value value = 0;
  qvn_hash_this(table.first, &key, &keylen, &value);
  EXPECT_STREQ(key, "key");
  EXPECT_EQ(keylen, 4);
  EXPECT_EQ(value, 9U);
  qvn_hash_this(table.first, nullptr, nullptr, nullptr);
}

TEST(Hash, ShortageOfMemoryGivesTheValueBackAndLeavesTheTableEmpty) {
  owned_table table;
  for (const int nth : {1, 2}) {  // the element, then the first buckets
    fail_nothrow_new(nth);
    EXPECT_EQ(qvn_hash_insert(&table, "key", 7), 7U);
    EXPECT_TRUE(nothrow_new_has_failed());
    EXPECT_EQ(table.count, 0);
    EXPECT_EQ(table.htable, nullptr);
  }
}

TEST(Hash, AFailedDoublingGoesOnAtTheOldSize) {
  owned_table table;
  for (int i = 0; i < 8; ++i) {
    ASSERT_EQ(qvn_hash_insert(&table, numbered_key(i).c_str(), 1), 0U);
  }
  fail_nothrow_new(2);
  EXPECT_EQ(qvn_hash_insert(&table, "ninth", 2), 0U);
  EXPECT_TRUE(nothrow_new_has_failed());
  EXPECT_EQ(table.htsize, 8U);
  EXPECT_EQ(qvn_hash_find(&table, "ninth"), 2U);
  EXPECT_EQ(qvn_hash_insert(&table, "tenth", 2), 0U);
  EXPECT_EQ(table.htsize, 16U);
}

/// A table whose number of buckets is no power of two.
qvn_hash_table broken_table(int32_t count, qvn_hash_element* first, qvn_hash_bucket* buckets) {
  return {count, first, 3, buckets};
}

TEST(HashDeathTest, BrokenInvariantsAbortWithTheirText) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::array<qvn_hash_bucket, 3> buckets{};
  qvn_hash_element element{};
  qvn_hash_table filled = broken_table(1, &element, buckets.data());
  EXPECT_DEATH((void)qvn_hash_find(&filled, "k"), R"(`\(ph->htsize & \(ph->htsize-1\)\) == 0')");
  EXPECT_DEATH((void)qvn_hash_find_ext(&filled, "k", 2, 1),
               R"(`\(ph->htsize & \(ph->htsize-1\)\) == 0')");
  EXPECT_DEATH((void)qvn_hash_insert(&filled, "k", 1),
               R"(`\(ph->htsize & \(ph->htsize - 1\)\) == 0')");
  qvn_hash_table without_buckets = broken_table(0, nullptr, nullptr);
  EXPECT_DEATH((void)qvn_hash_insert(&without_buckets, "k", 1),
               R"(`\(ph->htsize & \(ph->htsize-1\)\) == 0')");
  without_buckets.count = 3;
  EXPECT_DEATH((void)qvn_hash_insert(&without_buckets, "k", 1),
               R"(`\(new_size & \(new_size - 1\)\) == 0')");
}

TEST(HashDeathTest, WrongCountsAbortWhenTheTableRunsEmpty) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  owned_table table;
  ASSERT_EQ(qvn_hash_insert(&table, "a", 1), 0U);
  table.count = 0;
  EXPECT_DEATH((void)qvn_hash_insert(&table, "a", 0), R"(`ph->count == 0')");
  ASSERT_EQ(qvn_hash_insert(&table, "b", 1), 0U);
  EXPECT_DEATH((void)qvn_hash_insert(&table, "a", 0), R"(`ph->first == \(\(void \*\)0\)')");
}

}  // namespace
