#include "base/qvn_hash.h"

#include <cassert>
#include <cstring>
#include <new>
#include <utility>

namespace {

constexpr uint32_t kFirstSize = 8;

int32_t length_of(const char* key) {
  return static_cast<int32_t>(std::strlen(key)) + 1;
}

/// Bytes above 127 count as negative numbers: the bucket of a key, and with it the order of the
/// list, depends on it.
uint32_t hash_of(const char* key, int32_t keylen) {
  uint32_t hash = 0;
  for (int32_t i = 0; i < keylen; ++i) {
    const auto byte = static_cast<uint32_t>(int32_t{static_cast<int8_t>(key[i])});
    hash ^= (hash << 3) ^ byte;
  }
  return hash & 0x7fffffffU;
}

qvn_hash_element* find_in_bucket(const qvn_hash_bucket& bucket, const char* key, int32_t keylen) {
  qvn_hash_element* element = bucket.head;
  for (int32_t left = bucket.count; left > 0 && element; --left) {
    if (element->keylen == keylen &&
        std::memcmp(element->key, key, static_cast<std::size_t>(keylen)) == 0) {
      return element;
    }
    element = element->next;
  }
  return nullptr;
}

/// An unlinked element followed by its key in the same block, to be freed by ::operator delete, or
/// none when memory runs out.
qvn_hash_element* make_element(const char* key, int32_t keylen, qvn_hash_value value) {
  const auto key_size = static_cast<std::size_t>(keylen);
  void* block = ::operator new(sizeof(qvn_hash_element) + key_size, std::nothrow);
  if (!block) {
    return nullptr;
  }
  auto* own_key = static_cast<char*>(block) + sizeof(qvn_hash_element);
  std::memcpy(own_key, key, key_size);
  return new (block) qvn_hash_element{nullptr, nullptr, value, own_key, keylen};
}

/// Before the bucket's head, or at the very front of the list when the bucket is empty.
void link_element(qvn_hash_table* ph, qvn_hash_bucket& bucket, qvn_hash_element* element) {
  qvn_hash_element* const head = bucket.head;
  element->next = head ? head : ph->first;
  element->prev = head ? head->prev : nullptr;
  (element->prev ? element->prev->next : ph->first) = element;
  if (element->next) {
    element->next->prev = element;
  }
  ++bucket.count;
  bucket.head = element;
}

// The assertion texts are part of the module: what a crashed daemon leaves is searched for them.
// The formatter would change some, so it is switched off around those.

/// Spreads all elements over `new_size` buckets; on a shortage of memory nothing changes.
void rehash(qvn_hash_table* ph, uint32_t new_size) {
  assert((new_size & (new_size - 1)) == 0);
  auto* buckets = new (std::nothrow) qvn_hash_bucket[new_size]();
  if (!buckets) {
    return;
  }
  delete[] ph->htable;
  ph->htable = buckets;
  ph->htsize = new_size;
  qvn_hash_element* element = ph->first;
  ph->first = nullptr;
  while (element) {
    qvn_hash_element* next = element->next;
    const uint32_t hash = hash_of(element->key, element->keylen);
    link_element(ph, ph->htable[hash & (new_size - 1)], element);
    element = next;
  }
}

void remove_relement_given_hash(qvn_hash_table* ph, qvn_hash_element* element, uint32_t index) {
  (element->prev ? element->prev->next : ph->first) = element->next;
  if (element->next) {
    element->next->prev = element->prev;
  }
  qvn_hash_bucket& bucket = ph->htable[index];
  if (bucket.head == element) {
    bucket.head = element->next;
  }
  if (--bucket.count < 1) {
    bucket.head = nullptr;
  }
  ::operator delete(element);
  if (--ph->count <= 0) {
    // clang-format off
    assert(ph->first == ((void *)0));  // NOLINT(modernize-use-nullptr): part of the text
    // clang-format on
    assert(ph->count == 0);
    delete[] ph->htable;
    qvn_hash_init(ph);
  }
}

qvn_hash_value insert_hashed(qvn_hash_table* ph, const char* key, qvn_hash_value value,
                             int32_t keylen, uint32_t hash) {
  if (ph->htable) {
    assert((ph->htsize & (ph->htsize - 1)) == 0);
    const uint32_t index = hash & (ph->htsize - 1);
    if (qvn_hash_element* found = find_in_bucket(ph->htable[index], key, keylen)) {
      const qvn_hash_value stored = found->data;
      if (value == 0) {
        remove_relement_given_hash(ph, found, index);
      }
      return stored;
    }
  }
  if (value == 0) {
    return 0;
  }
  qvn_hash_element* element = make_element(key, keylen, value);
  if (!element) {
    return value;
  }
  ++ph->count;
  if (ph->htsize == 0) {
    rehash(ph, kFirstSize);
    if (ph->htsize == 0) {
      ph->count = 0;
      ::operator delete(element);
      return value;
    }
  }
  if (ph->htsize < static_cast<uint32_t>(ph->count)) {
    rehash(ph, ph->htsize * 2);
  }
  assert(ph->htsize > 0);
  // clang-format off
  assert((ph->htsize & (ph->htsize-1)) == 0);
  // clang-format on
  // A table with a size has buckets.
  // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker)
  link_element(ph, ph->htable[hash & (ph->htsize - 1)], element);
  return 0;
}

}  // namespace

void qvn_hash_init(qvn_hash_table* table) {
  *table = qvn_hash_table{};
}

qvn_hash_value qvn_hash_insert(qvn_hash_table* table, const char* key, qvn_hash_value value) {
  return qvn_hash_insert_ext(table, key, value, nullptr, nullptr);
}

qvn_hash_value qvn_hash_insert_ext(qvn_hash_table* table, const char* key, qvn_hash_value value,
                                   int32_t* keylen, uint32_t* hash) {
  if (keylen && *keylen > 0 && hash) {
    return insert_hashed(table, key, value, *keylen, *hash);
  }
  const int32_t own_keylen = length_of(key);
  const uint32_t own_hash = hash_of(key, own_keylen);
  if (keylen) {
    *keylen = own_keylen;
  }
  if (hash) {
    *hash = own_hash;
  }
  return insert_hashed(table, key, value, own_keylen, own_hash);
}

qvn_hash_value qvn_hash_find(const qvn_hash_table* table, const char* key) {
  return qvn_hash_find_ext(table, key, 0, 0);
}

qvn_hash_value qvn_hash_find_ext(const qvn_hash_table* ph, const char* key, int32_t keylen,
                                 uint32_t hash) {
  if (!ph || !ph->first || !ph->htable) {
    return 0;
  }
  if (keylen < 1) {
    keylen = length_of(key);
    hash = hash_of(key, keylen);
  }
  // clang-format off
  assert((ph->htsize & (ph->htsize-1)) == 0);
  // clang-format on
  const qvn_hash_element* found = find_in_bucket(ph->htable[hash & (ph->htsize - 1)], key, keylen);
  return found ? found->data : 0;
}

void qvn_hash_this(const qvn_hash_element* element, const char** key, int32_t* keylen,
                   qvn_hash_value* value) {
  if (key) {
    *key = element->key;
  }
  if (keylen) {
    *keylen = length_of(element->key);
  }
  if (value) {
    *value = element->data;
  }
}

void qvn_hash_clear(qvn_hash_table* table) {
  qvn_hash_element* element = table->first;
  while (element) {
    ::operator delete(std::exchange(element, element->next));
  }
  delete[] table->htable;
  qvn_hash_init(table);
}
