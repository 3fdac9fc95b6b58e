/// The prefix tree as a sequence of operations, one a line: the operation's letter, a digit for the
/// record, then the key. A "/" in the key leads into the nested tree of the key before it.

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <vector>

#include "rate/rp_hash.h"
#include "support.h"

namespace {

/// The records of a node: a set of digits.
using records = std::multiset<char>;
int64_t g_live_records = 0;

void add_record(rp_hash_node* node, char record) {
  if (!node->items) {
    node->items = new records;
  }
  static_cast<records*>(node->items)->insert(record);
  ++node->item_count;
  ++g_live_records;
}

/// Frees one record, or all with no argument, as the daemon's own callbacks do.
int32_t free_record(rp_hash_node* node, const void* argument) {
  auto* const held = static_cast<records*>(node->items);
  if (argument) {
    const auto found = held->find(*static_cast<const char*>(argument));
    if (found == held->end()) {
      return 0;
    }
    held->erase(found);
    --g_live_records;
  } else {
    g_live_records -= static_cast<int64_t>(held->size());
    held->clear();
  }
  node->item_count = static_cast<uint32_t>(held->size());
  if (held->empty()) {
    delete held;
    node->items = nullptr;
  }
  return 1;
}

struct place;

/// A tree the plain way: a table of children at every place. The empty key stands under the byte 0.
using level = std::map<char, place>;

struct place {
  uint64_t passes = 0;
  uint64_t insertions = 0;  ///< of the key that ends here, not yet undone
  bool terminal = false;
  records held;
  level children;
  level nested;
};

place* enter(level& places, char byte) {
  const auto [found, fresh] = places.try_emplace(byte);
  found->second.passes += fresh ? 0 : 1;
  return &found->second;
}

place& create(level& tree, const std::string& key) {
  const std::size_t kept = key.size() % 256;
  place* last = kept == 0 ? enter(tree, '\0') : nullptr;
  for (std::size_t i = 0; i < kept; ++i) {
    last = enter(last ? last->children : tree, key[i]);
  }
  last->terminal = true;
  ++last->insertions;
  return *last;
}

/// The places on the key's way, as far as there are any.
std::vector<place*> way(level& tree, const std::string& key) {
  std::vector<place*> places;
  level* next = &tree;
  for (const char byte : key.empty() ? std::string(1, '\0') : key) {
    const auto found = next->find(byte);
    if (found == next->end()) {
      break;
    }
    places.push_back(&found->second);
    next = &found->second.children;
  }
  return places;
}

/// The length of the longest key that begins `key`; 0 for the default, -1 for none.
int search(level& tree, const std::string& key) {
  const std::vector<place*> places = way(tree, key);
  for (std::size_t length = key.empty() ? 0 : places.size(); length > 0; --length) {
    if (places[length - 1]->terminal) {
      return static_cast<int>(length);
    }
  }
  return tree.contains('\0') ? 0 : -1;
}

place* match(level& tree, const std::string& key) {
  const std::vector<place*> places = way(tree, key);
  const bool whole = places.size() == std::max<std::size_t>(key.size(), 1);
  return whole && places.back()->terminal ? places.back() : nullptr;
}

/// What the deletion of a record, or of an insertion without one, returns.
int32_t remove(level& tree, const std::string& key, char record) {
  place* const node = match(tree, key);
  if (!node) {
    return 0;
  }
  if (!node->held.empty()) {
    const auto found = node->held.find(record);
    if (found == node->held.end()) {
      return 0;
    }
    node->held.erase(found);
    if (!node->held.empty()) {
      return 1;
    }
    node->terminal = false;
  }
  --node->insertions;
  const std::vector<place*> places = way(tree, key);
  for (std::size_t i = places.size(); i > 0; --i) {
    place& passed = *places[i - 1];
    if (passed.passes > 0) {
      --passed.passes;
    } else if (passed.children.empty() && passed.nested.empty()) {
      (i > 1 ? places[i - 2]->children : tree).erase(key.empty() ? '\0' : key[i - 1]);
    }
  }
  return 1;
}

/// Compares a level and all below with the model.
void check_level(const rp_hash_node* first, const rp_hash_node* parent, const level& expected) {
  std::size_t count = 0;
  const rp_hash_node* previous = nullptr;
  for (const rp_hash_node* node = first; node; previous = node, node = node->next, ++count) {
    FUZZ_CHECK(node->prev == previous && node->parent == parent);
    FUZZ_CHECK(node->depth == (parent ? parent->depth : 0) + 1);
    const auto found = expected.find(static_cast<char>(node->ch));
    FUZZ_CHECK(found != expected.end());
    const place& model = found->second;
    FUZZ_CHECK(node->pass_count == model.passes && (node->terminal == 1) == model.terminal);
    FUZZ_CHECK(node->item_count == model.held.size() && !node->items == model.held.empty());
    FUZZ_CHECK(!node->items || *static_cast<records*>(node->items) == model.held);
    check_level(node->sub, nullptr, model.nested);
    check_level(node->children, node, model.children);
  }
  FUZZ_CHECK(count == expected.size());
}

/// The length of the key that ends at a node; 0 for the empty key, -1 for none.
int length_of(const rp_hash_node* node) {
  if (!node) {
    return -1;
  }
  return node->ch == 0 ? 0 : node->depth;
}

/// A node and those above it spell the beginning of the key.
void check_spelling(const rp_hash_node* node, const std::string& key) {
  for (; node && node->ch != 0; node = node->parent) {
    FUZZ_CHECK(node->ch == static_cast<uint8_t>(key[node->depth - std::size_t{1}]));
  }
}

void check_lookups(rp_hash_node* const* slot, level& expected, const std::string& key) {
  const rp_hash_node* const found = rp_hash_search(slot, key.c_str());
  FUZZ_CHECK(length_of(found) == search(expected, key));
  check_spelling(found, key);
  std::array<std::string_view, kRpHashInFlight> endings;
  std::array<rp_hash_node*, kRpHashInFlight> each{};
  for (std::size_t i = 0; i < endings.size(); ++i) {
    endings[i] = std::string_view(key).substr(std::min(i, key.size()));
  }
  rp_hash_search_each(slot, endings, each.data());
  for (std::size_t i = 0; i < endings.size(); ++i) {
    FUZZ_CHECK(each[i] == rp_hash_search(slot, endings[i].data()));
  }
  const rp_hash_node* const exact = rp_hash_match_all(slot, key.c_str());
  FUZZ_CHECK((exact != nullptr) == (match(expected, key) != nullptr));
  FUZZ_CHECK(!exact || exact == found);
}

/// A key without records stays to be found while it has children; undoing more insertions of it
/// than there were takes those of the keys on its way.
bool may_delete(level& expected, const std::string& key) {
  const place* const kept = match(expected, key);
  return !kept || kept->insertions > 0;
}

void operate(rp_hash_node** slot, level& expected, char operation, char record,
             const std::string& key) {
  switch (operation) {
    case 'i': {  // with a record
      rp_hash_node* const node = rp_hash_create(slot, key.c_str());
      FUZZ_CHECK(node);
      add_record(node, record);
      create(expected, key).held.insert(record);
      break;
    }
    case 'k':  // without
      FUZZ_CHECK(rp_hash_create(slot, key.c_str()));
      create(expected, key);
      break;
    case 'd':
      if (may_delete(expected, key)) {
        FUZZ_CHECK(rp_hash_delete(slot, key.c_str(), free_record, &record) ==
                   remove(expected, key, record));
      }
      break;
    case 'u': {  // an insertion alone, which is for keys without records
      const place* const kept = match(expected, key);
      if (may_delete(expected, key) && (!kept || kept->held.empty())) {
        FUZZ_CHECK(rp_hash_delete(slot, key.c_str(), nullptr, nullptr) ==
                   remove(expected, key, record));
      }
      break;
    }
    default:
      break;
  }
  check_lookups(slot, expected, key);
}

/// Operates on the tree, or on the nested tree of the key before a "/".
void operate_below(rp_hash_node** slot, level& expected, char operation, char record,
                   const std::string& path) {
  const std::size_t slash = path.find('/');
  if (slash == std::string::npos) {
    operate(slot, expected, operation, record, path);
    return;
  }
  const std::string outer = path.substr(0, slash);
  rp_hash_node* const node = rp_hash_match_all(slot, outer.c_str());
  if (!node) {
    return;
  }
  operate_below(&node->sub, match(expected, outer)->nested, operation, record,
                path.substr(slash + 1));
}

std::size_t places_with_records(const level& places) {
  std::size_t count = 0;
  for (const auto& [byte, place] : places) {
    count += (place.held.empty() ? 0 : 1) + places_with_records(place.children) +
             places_with_records(place.nested);
  }
  return count;
}

int32_t count_visit(rp_hash_node* node, void* count) {
  FUZZ_CHECK(node->items);
  ++*static_cast<std::size_t*>(count);
  return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  rp_hash_node* root = nullptr;
  level expected;
  for (fuzz_input input(data, size); !input.empty();) {
    const char operation = static_cast<char>(input.byte());
    const auto record = static_cast<char>('0' + input.byte() % 4);
    operate_below(&root, expected, operation, record, input.line());
  }
  check_level(root, nullptr, expected);
  std::size_t visited = 0;
  FUZZ_CHECK(rp_hash_record(&root, count_visit, &visited) == (root ? 1 : 0));
  FUZZ_CHECK(visited == places_with_records(expected));
  FUZZ_CHECK(rp_hash_destroy(&root, free_record) == (expected.empty() ? 0 : 1));
  FUZZ_CHECK(!root && g_live_records == 0);
  return 0;
}
