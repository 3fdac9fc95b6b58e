// What the model of fuzz/hash.cpp leaves open: the order of the elements, in which databases are
// served and listed, and the assertions.
#include <array>
#include <gtest/gtest.h>
#include <string>

#include "base/qvn_hash.h"
#include "base/qvn_keyed_hash.h"

namespace {

/// A table that is cleared after the test.
struct owned_table : qvn_hash_table {
  owned_table() { qvn_hash_init(this); }
  ~owned_table() { qvn_hash_clear(this); }
  owned_table(const owned_table&) = delete;
  owned_table& operator=(const owned_table&) = delete;
};

// With 8 buckets "a" and "i" share one, "b" and "j" another. The ninth element doubles them, which
// links the list anew from its front.
TEST(Hash, NewestOfABucketIsItsHeadAndNewBucketsComeFirst) {
  owned_table table;
  const auto order = [&](const char* inserted) {
    for (const char* key = inserted; *key; ++key) {
      EXPECT_EQ(qvn_hash_insert(&table, std::string(1, *key).c_str(), 1), 0U);
    }
    std::string keys;
    for (const qvn_hash_element* e = table.first; e != nullptr; e = e->next) {
      qvn_hash_value value = 0;
      const char* key = nullptr;
      qvn_hash_this(e, &key, nullptr, &value);
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

TEST(Hash, LengthAndHashOfAKey) {
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
  }
}

TEST(HashDeathTest, BrokenInvariantsAbortWithTheirText) {
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
