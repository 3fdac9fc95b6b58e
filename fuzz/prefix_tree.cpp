/// The prefix tree as a sequence of operations, one a line: the operation's letter, a digit for the
/// record, then the key. A "/" in the key leads into the nested tree of the key before it.

#include <algorithm>
#include <array>
#include <map>

#include "rate/rp_hash.h"
#include "support.h"

namespace {

int64_t g_live_records = 0;

/// Frees one record, or all with no argument, as the daemon's own callbacks do. The tree only
/// counts them; that of the digit 0 is never there.
int32_t free_record(rp_hash_node* node, const void* argument) {
  if (argument && *static_cast<const char*>(argument) == '0') {
    return 0;
  }
  const uint32_t freed = argument ? 1 : node->item_count;
  g_live_records -= freed;
  node->item_count -= freed;
  node->items = node->item_count == 0 ? nullptr : node->items;
  return 1;
}

struct place {
  uint64_t passes = 0;
  uint64_t insertions = 0;  ///< of the key that ends here, not yet undone
  bool terminal = false;
  uint32_t records = 0;
};

/// Every place of a tree and those nested in it, by the bytes that lead there: a key's own, with a
/// "/" between that of a tree and one nested below it. The empty key's byte is 0.
using model = std::map<std::string, place>;

/// A tree of the model: what its keys follow.
struct tree {
  model& places;
  std::string before;

  [[nodiscard]] std::string path(const std::string& key) const {
    return before + (key.empty() ? std::string(1, '\0') : key);
  }
  [[nodiscard]] place* match(const std::string& key) const {
    const auto found = places.find(path(key));
    return found != places.end() && found->second.terminal ? &found->second : nullptr;
  }
};

place& create(const tree& in, const std::string& key) {
  const std::string path = in.path(key.substr(0, key.size() % 256));
  for (std::size_t size = in.before.size() + 1; size <= path.size(); ++size) {
    const auto [found, fresh] = in.places.try_emplace(path.substr(0, size));
    found->second.passes += fresh ? 0 : 1;
  }
  place& last = in.places[path];
  last.terminal = true;
  ++last.insertions;
  return last;
}

/// The length of the longest key that begins `key`; 0 for the default, -1 for none.
int search(const tree& in, const std::string& key) {
  for (std::size_t length = std::min<std::size_t>(key.size(), 255); length > 0; --length) {
    if (in.match(key.substr(0, length))) {
      return static_cast<int>(length);
    }
  }
  return in.places.contains(in.path("")) ? 0 : -1;
}

/// What the deletion of a record, or of an insertion without one, returns.
int32_t remove(const tree& in, const std::string& key, char record) {
  place* const node = in.match(key);
  if (!node) {
    return 0;
  }
  if (node->records > 0) {
    if (record == '0' || --node->records > 0) {
      return record == '0' ? 0 : 1;
    }
    node->terminal = false;
  }
  --node->insertions;
  const std::string path = in.path(key);
  for (std::size_t size = path.size(); size > in.before.size(); --size) {
    const auto passed = in.places.find(path.substr(0, size));
    const auto below = std::next(passed);
    if (passed->second.passes > 0) {
      --passed->second.passes;
    } else if (below == in.places.end() || !below->first.starts_with(passed->first)) {
      in.places.erase(passed);
    }
  }
  return 1;
}

/// Compares a level and all below with the model; returns how many nodes there are.
std::size_t check_level(const rp_hash_node* first, const rp_hash_node* parent,
                        const std::string& before, const model& expected) {
  std::size_t count = 0;
  const rp_hash_node* previous = nullptr;
  for (const rp_hash_node* node = first; node; previous = node, node = node->next) {
    FUZZ_CHECK(node->prev == previous && node->parent == parent);
    FUZZ_CHECK(node->depth == (parent ? parent->depth : 0) + 1);
    const std::string path = before + static_cast<char>(node->ch);
    const auto found = expected.find(path);
    FUZZ_CHECK(found != expected.end());
    const place& place = found->second;
    FUZZ_CHECK(node->pass_count == place.passes && (node->terminal == 1) == place.terminal);
    FUZZ_CHECK(node->item_count == place.records && !node->items == (place.records == 0));
    count += 1 + check_level(node->sub, nullptr, path + "/", expected) +
             check_level(node->children, node, path, expected);
  }
  return count;
}

/// The length of the key that ends at a node, which it spells; 0 for the empty key, -1 for none.
int length_of(const rp_hash_node* found, const std::string& key) {
  for (const rp_hash_node* node = found; node && node->ch != 0; node = node->parent) {
    FUZZ_CHECK(node->ch == static_cast<uint8_t>(key[node->depth - std::size_t{1}]));
  }
  return !found ? -1 : found->ch == 0 ? 0 : found->depth;
}

void check_lookups(rp_hash_node* const* slot, const tree& in, const std::string& key) {
  const rp_hash_node* const found = rp_hash_search(slot, key.c_str());
  FUZZ_CHECK(length_of(found, key) == search(in, key));
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
  FUZZ_CHECK((exact != nullptr) == (in.match(key) != nullptr) && (!exact || exact == found));
}

/// Inserts ("i" with the record, "k" without), deletes the record, or undoes an insertion alone,
/// which is for keys without records.
///
/// A key without records stays to be found while it has children; undoing more insertions of it
/// than there were takes those of the keys on its way.
void operate(rp_hash_node** slot, const tree& in, char operation, char record,
             const std::string& key) {
  const place* const kept = in.match(key);
  const bool may_delete = !kept || kept->insertions > 0;
  if (operation == 'i' || operation == 'k') {
    rp_hash_node* const node = rp_hash_create(slot, key.c_str());
    FUZZ_CHECK(node);
    place& created = create(in, key);
    if (operation == 'i') {
      node->items = &g_live_records;
      node->item_count = ++created.records;
      ++g_live_records;
    }
  } else if (operation == 'd' && may_delete) {
    FUZZ_CHECK(rp_hash_delete(slot, key.c_str(), free_record, &record) == remove(in, key, record));
  } else if (operation == 'u' && may_delete && (!kept || kept->records == 0)) {
    FUZZ_CHECK(rp_hash_delete(slot, key.c_str(), nullptr, nullptr) == remove(in, key, record));
  }
  check_lookups(slot, in, key);
}

int32_t count_visit(rp_hash_node* node, void* count) {
  FUZZ_CHECK(node->items);
  ++*static_cast<int64_t*>(count);
  return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  rp_hash_node* root = nullptr;
  model expected;
  for (fuzz_input input(data, size); !input.empty();) {
    const char operation = static_cast<char>(input.byte());
    const auto record = static_cast<char>('0' + input.byte() % 4);
    std::string key = input.line();
    tree in{expected, ""};
    rp_hash_node** slot = &root;
    for (std::size_t slash = 0; slot && (slash = key.find('/')) != std::string::npos;) {
      const std::string outer = key.substr(0, slash);
      rp_hash_node* const node = rp_hash_match_all(slot, outer.c_str());
      slot = node ? &node->sub : nullptr;
      in.before = in.path(outer) + "/";
      key.erase(0, slash + 1);
    }
    if (slot) {
      operate(slot, in, operation, record, key);
    }
  }
  FUZZ_CHECK(check_level(root, nullptr, "", expected) == expected.size());
  int64_t visited = 0;
  FUZZ_CHECK(rp_hash_record(&root, count_visit, &visited) == (root ? 1 : 0));
  FUZZ_CHECK(visited == std::ranges::count_if(
                            expected, [](const auto& each) { return each.second.records > 0; }));
  FUZZ_CHECK(rp_hash_destroy(&root, free_record) == (expected.empty() ? 0 : 1));
  FUZZ_CHECK(!root && g_live_records == 0);
  return 0;
}
