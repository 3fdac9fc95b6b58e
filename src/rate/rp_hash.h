/// The prefix tree: a byte-wise trie for codes and prefixes, with a nested tree under any node.
///
///     root slot -> [4]<->[3]<->...           one sibling list per level, unordered, newest first
///                   | '- index: digit 4 -> [4], digit 9 -> [9]
///                  [4]<->[9]                 44 and 49
///                   |
///                  [2]                       442; a key ends where `terminal` is 1
///                   '- items: the caller's circular list of records for this key
///                   '- sub:   root slot of the nested tree (rate table id -> code)
///
/// The lists are the tree. A node with several children also has an index of them by digit, so that
/// a search in a tree far larger than the cache fetches one line per level, not one per sibling.
/// Other bytes than digits, and the top level, are looked up in their lists.
///
/// A tree is its root slot: a pointer that its owner keeps, null when empty; every operation takes
/// the slot's address. A dialled number finds the longest key that is a prefix of it. The tree does
/// not know its payloads: the caller links them into `items`, counts them in `item_count`, and
/// hands over the callback that frees them.
///
/// Key lengths are 8-bit counts: a key of 256 bytes is the empty key, one of 300 bytes its first 44
/// bytes. The empty key is the default of a search that finds nothing else, but never of an exact
/// match.
///
/// Bytes (x86-64): 64 per node, one cache line, and 64 per index. Both come from slabs of the
/// building thread: a tree is built, read and destroyed by one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

/// What a walk needs stands first. The counts are as wide as memory can ever make them.
struct rp_hash_node {
  uint8_t ch;                ///< the key byte; 0 only for the empty key
  uint8_t terminal;          ///< 1 when an inserted key ends here
  uint8_t depth;             ///< length of the key that ends here; 1 for the empty key
  uint64_t pass_count : 40;  ///< live insertions through this node beyond the one that made it
  uint32_t item_count;       ///< records in `items`; kept by the caller and the free callback
  int32_t index;             ///< the tree's own: where the children's index lies, or 0: none
  rp_hash_node* children;    ///< first node of the next level
  rp_hash_node* next;        ///< sibling; null for the last
  rp_hash_node* prev;        ///< sibling; null for the first
  rp_hash_node* parent;      ///< null at the top level
  void* items;               ///< first record of the payload list, or null: no payload
  rp_hash_node* sub;         ///< nested tree under this node, or null
};

/// Frees payload. With a null argument it frees every item of the node; otherwise the one item that
/// the argument names, 0 when none matched. Keeps `items` and `item_count` right. 1 on success.
using rp_hash_free_fn = int32_t (*)(rp_hash_node* node, const void* argument);

/// Looks at one node that carries a payload; the result is ignored.
using rp_hash_visit_fn = int32_t (*)(rp_hash_node* node, void* argument);

/// Inserts the key and returns the node at which it ends; inserting it again returns the same node
/// and counts one more insertion. Null for a null slot or key, and when memory runs out: the caller
/// then drops its record.
[[nodiscard]] rp_hash_node* rp_hash_create(rp_hash_node** slot, const char* key);

/// Longest prefix: the deepest node on the key's path at which a key ends, else the node of the
/// empty key, else null.
[[nodiscard]] rp_hash_node* rp_hash_search(rp_hash_node* const* slot, const char* key);

/// Searches that rp_hash_search_each has in flight at once.
inline constexpr std::size_t kRpHashInFlight = 16;

/// rp_hash_search for up to kRpHashInFlight keys, none of which holds a NUL; `found` has a place
/// for each. In a tree far larger than the cache the searches wait for memory together instead of
/// one after the other. The nodes found are on their way into the cache.
void rp_hash_search_each(rp_hash_node* const* slot, std::span<const std::string_view> keys,
                         rp_hash_node** found);

/// Exact match: the node of exactly this key, else null.
[[nodiscard]] rp_hash_node* rp_hash_match_all(rp_hash_node* const* slot, const char* key);

/// Undoes one insertion of the key: frees the item that `argument` names through `free_fn` and,
/// when no item is left, the nodes that only this insertion needed. 1 when done, also when items
/// remain (the path is then left as it is); 0 when the key or item is not there. Without a callback
/// the payload of a node is not looked at. A node that still has children or a nested tree is never
/// freed.
int32_t rp_hash_delete(rp_hash_node** slot, const char* key, rp_hash_free_fn free_fn,
                       const void* argument);

/// Frees the whole tree with its nested trees and payloads and sets the slot to null. 1, or 0 for a
/// null or empty slot. `free_fn` is required when any node carries a payload.
int32_t rp_hash_destroy(rp_hash_node** slot, rp_hash_free_fn free_fn);

/// Visits every node with a payload, children and nested trees before their node. 1, or 0 for a
/// null or empty slot. The daemon does not call it.
int32_t rp_hash_record(rp_hash_node* const* slot, rp_hash_visit_fn visit, void* argument);
