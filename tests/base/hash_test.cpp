#include <array>
#include <gtest/gtest.h>
#include <map>
#include <string>

#include "base/qvn_hash.h"
#include "base/qvn_keyed_hash.h"
#include "support/rounds.h"

namespace {

/// A table that is cleared after the test.
struct owned_table : qvn_hash_table {
  owned_table() { qvn_hash_init(this); }
  ~owned_table() { qvn_hash_clear(this); }
  owned_table(const owned_table&) = delete;
  owned_table& operator=(const owned_table&) = delete;
};

/// Each answer is a map's, and so is the list.
TEST(hash, answers_as_a_map_while_it_grows_and_shrinks) {
  const unsigned seed = support::seed();
  SCOPED_TRACE(testing::Message() << "QVN_SEED=" << seed);
  std::mt19937 random(seed);
  owned_table table;
  std::map<std::string, qvn_hash_value> expected;
  for (qvn_hash_value step = 1; step <= 20'000; ++step) {
    const std::string key = std::to_string(random() % 64);
    const bool removes = random() % 16 < (step / 500 % 2 == 0 ? 15 : 1);
    const qvn_hash_value before = expected.contains(key) ? expected[key] : 0;
    ASSERT_EQ(qvn_hash_find(&table, key.c_str()), before);
    ASSERT_EQ(qvn_hash_insert(&table, key.c_str(), removes ? 0 : step), before);
    removes ? static_cast<void>(expected.erase(key))
            : static_cast<void>(expected.emplace(key, step));
    ASSERT_EQ(table.htable == nullptr, expected.empty());
    std::size_t listed = 0;
    const qvn_hash_element* last = nullptr;
    for (const auto* each = table.first; each; last = each, each = each->next, ++listed) {
      ASSERT_EQ(each->prev, last);
      ASSERT_EQ(each->data, expected[each->key]);
    }
    ASSERT_EQ(listed, expected.size());
    ASSERT_EQ(table.count, std::ssize(expected));
  }
}

// With 8 buckets "a" and "i" share one, "b" and "j" another. The ninth element doubles them, which
// links the list anew from its front.
TEST(hash, newest_of_a_bucket_is_its_head_and_new_buckets_come_first) {
  owned_table table;
  const auto order = [&](const char* inserted) {
    for (const char* key = inserted; *key; ++key) {
      EXPECT_EQ(qvn_hash_insert(&table, std::string(1, *key).c_str(), 1), 0U);
    }
    std::string keys;
    for (const qvn_hash_element* e = table.first; e != nullptr; e = e->next) {
      const char* key = nullptr;
      qvn_hash_value value = 0;
      int32_t keylen = 0;
      qvn_hash_this(e, &key, &keylen, &value);
      EXPECT_TRUE(keylen == 2 && value == 1);
      keys += key;
    }
    return keys;
  };
  EXPECT_EQ(order("abij"), "jbia");
  EXPECT_EQ(order("cdef"), "fedcjbia");
  EXPECT_EQ(table.htsize, 8U);
  EXPECT_EQ(order("g"), "gaibjcdef");
  EXPECT_EQ(table.htsize, 16U);
}

TEST(hash, length_and_hash_of_a_key) {
  const struct {
    const char* key;
    int32_t keylen;
    uint32_t hash;
  } cases[] = {{"", 1, 0},
               {"a", 2, 0x61 ^ (0x61 << 3)},
               // A byte above 127 brings in its sign.
               {"\x80", 2, (0xffffff80U ^ (0xffffff80U << 3)) & 0x7fffffffU}};
  for (const auto& c : cases) {
    owned_table table;
    int32_t keylen = 0;
    uint32_t hash = 99;
    EXPECT_EQ(qvn_hash_insert_ext(&table, c.key, 5, &keylen, &hash), 0U);
    EXPECT_EQ(keylen, c.keylen);
    EXPECT_EQ(hash, c.hash);
    EXPECT_EQ(qvn_hash_find_ext(&table, c.key, keylen, hash + 1), 0U);
    EXPECT_EQ(qvn_hash_find_ext(&table, c.key, keylen, hash), 5U);
    EXPECT_EQ(qvn_hash_insert_ext(&table, c.key, 0, &keylen, &hash), 5U);
  }
}

TEST(hash_death_test, broken_invariants_abort_with_their_text) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::array<qvn_hash_bucket, 3> buckets{};
  qvn_hash_element element{};
  qvn_hash_table odd{1, &element, 3, buckets.data()};
  const char* const size = R"(`\(ph->htsize & \(ph->htsize ?- ?1\)\) == 0')";
  EXPECT_DEATH((void)qvn_hash_find(&odd, "k"), size);
  EXPECT_DEATH((void)qvn_hash_find_ext(&odd, "k", 2, 1), size);
  EXPECT_DEATH((void)qvn_hash_insert(&odd, "k", 1), size);
  qvn_hash_table without_buckets{3, nullptr, 3, nullptr};
  EXPECT_DEATH((void)qvn_hash_insert(&without_buckets, "k", 1),
               R"(`\(new_size & \(new_size - 1\)\) == 0')");
  owned_table table;
  ASSERT_EQ(qvn_hash_insert(&table, "a", 1), 0U);
  table.count = 0;
  EXPECT_DEATH((void)qvn_hash_insert(&table, "a", 0), R"(`ph->count == 0')");
  ASSERT_EQ(qvn_hash_insert(&table, "b", 1), 0U);
  EXPECT_DEATH((void)qvn_hash_insert(&table, "a", 0), R"(`ph->first == \(\(void \*\)0\)')");
}

/// The test vectors of its authors.
TEST(keyed_hash, is_sip_hash_2_4) {
  const qvn_hash_key key{0x0706050403020100, 0x0f0e0d0c0b0a0908};
  EXPECT_EQ(qvn_keyed_hash(key, ""), 0x726fdb47dd0e0e31U);
  EXPECT_EQ(qvn_keyed_hash(key, {"\0\1\2\3\4\5\6\7\10\11\12\13\14\15\16", 15}),
            0xa129ca6149be45e5U);
}

}  // namespace
