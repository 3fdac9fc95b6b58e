/// The hash table as a sequence of operations, one a line: the operation's letter, then the key.

#include <map>
#include <set>

#include "base/qvn_hash.h"
#include "support.h"

namespace {

using model = std::map<std::string, qvn_hash_value, std::less<>>;

/// What a lookup or change of the key must answer.
qvn_hash_value stored(const model& expected, const std::string& key) {
  const auto found = expected.find(key);
  return found == expected.end() ? 0 : found->second;
}

/// The list holds what the model holds, linked both ways, the elements of a bucket side by side.
void check_table(const qvn_hash_table& table, const model& expected) {
  FUZZ_CHECK(table.count == static_cast<int32_t>(expected.size()));
  FUZZ_CHECK((table.htable == nullptr) == expected.empty());
  FUZZ_CHECK(table.htsize >= static_cast<uint32_t>(table.count));
  std::set<const qvn_hash_element*> listed;
  const qvn_hash_element* previous = nullptr;
  for (const auto* element = table.first; element; element = element->next) {
    const char* key = nullptr;
    int32_t keylen = 0;
    qvn_hash_value value = 0;
    qvn_hash_this(element, &key, &keylen, &value);
    FUZZ_CHECK(element->prev == previous && keylen == element->keylen);
    FUZZ_CHECK(value == stored(expected, key));
    FUZZ_CHECK(listed.insert(element).second);
    previous = element;
  }
  FUZZ_CHECK(listed.size() == expected.size());
  int32_t counted = 0;
  for (uint32_t i = 0; i < table.htsize; ++i) {
    const qvn_hash_bucket& bucket = table.htable[i];
    FUZZ_CHECK((bucket.head == nullptr) == (bucket.count == 0));
    const qvn_hash_element* element = bucket.head;
    for (int32_t left = bucket.count; left > 0; --left, element = element->next, ++counted) {
      FUZZ_CHECK(listed.erase(element) == 1);
    }
  }
  FUZZ_CHECK(counted == table.count && listed.empty());
}

/// One operation; the answer is compared with the model, which follows.
void operate(qvn_hash_table& table, model& expected, char operation, const std::string& key,
             qvn_hash_value fresh) {
  const qvn_hash_value before = stored(expected, key);
  int32_t keylen = 0;
  uint32_t hash = 0;
  switch (operation) {
    case 'i':
      FUZZ_CHECK(qvn_hash_insert(&table, key.c_str(), fresh) == before);
      expected.emplace(key, fresh);
      break;
    case 'r':
      FUZZ_CHECK(qvn_hash_insert(&table, key.c_str(), 0) == before);
      expected.erase(key);
      break;
    case 'x':
      FUZZ_CHECK(qvn_hash_insert_ext(&table, key.c_str(), fresh, &keylen, &hash) == before);
      FUZZ_CHECK(keylen == static_cast<int32_t>(key.size()) + 1);
      FUZZ_CHECK(qvn_hash_find_ext(&table, key.c_str(), keylen, hash) == (before ? before : fresh));
      FUZZ_CHECK(qvn_hash_insert_ext(&table, key.c_str(), 0, &keylen, &hash) ==
                 (before ? before : fresh));
      expected.erase(key);
      break;
    case 'c':
      qvn_hash_clear(&table);
      expected.clear();
      break;
    default:
      FUZZ_CHECK(qvn_hash_find(&table, key.c_str()) == before);
      FUZZ_CHECK(qvn_hash_find_ext(&table, key.c_str(), 0, 0) == before);
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  qvn_hash_table table;
  qvn_hash_init(&table);
  model expected;
  qvn_hash_value fresh = 0;
  for (fuzz_input input(data, size); !input.empty();) {
    const char operation = static_cast<char>(input.byte());
    operate(table, expected, operation, input.line(), ++fresh);
  }
  check_table(table, expected);
  qvn_hash_clear(&table);
  check_table(table, {});
  return 0;
}
