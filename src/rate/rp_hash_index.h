/// The children of one node of the prefix tree by their digit; for rp_hash.cpp alone.
///
/// A crowded level has one, so that finding a child costs one cache line instead of one per
/// sibling. Where a child has an index itself, the entry leads to that index: a search then walks
/// from index to index and leaves the nodes alone.
///
/// Places are given as distances in lines from this index, so that all ten fit one line. A node too
/// far away for that (64 GiB) is not in the index. Indexes belong to the thread of their tree.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>

#include "rate/rp_hash.h"

struct rp_hash_index {
  static constexpr std::size_t kLine = 64;  ///< bytes of a cache line

  int32_t child[10];  ///< link to a digit's node or, odd, its index; 0: none
  int32_t owner;      ///< distance of the node whose children these are
  uint8_t terminal;   ///< the owner's
  uint8_t partial;    ///< 1 when the list may have digits that are not here

  /// The index of the node's children, or null.
  [[nodiscard]] static rp_hash_index* of(const rp_hash_node* node) {
    return node->index == 0 ? nullptr : at_distance<rp_hash_index>(node, node->index);
  }

  /// Gives the node's children an index, which is freed with the node. Without memory the list has
  /// to do.
  static void make(rp_hash_node* owner);

  /// Links to the node or, when it has one, to the node's index.
  void add(const rp_hash_node* node);

  [[nodiscard]] rp_hash_node* owner_node() const { return at_distance<rp_hash_node>(this, owner); }

  /// The digit's link, or null for a byte that is no digit.
  [[nodiscard]] const int32_t* link_of(uint8_t ch) const {
    const unsigned digit = unsigned{ch} - '0';
    return digit < std::size(child) ? &child[digit] : nullptr;
  }
  [[nodiscard]] int32_t* link_of(uint8_t ch) {
    return const_cast<int32_t*>(std::as_const(*this).link_of(ch));
  }

  [[nodiscard]] static bool leads_to_index(int32_t link) { return (link & 1) != 0; }

  /// What a link leads to: a node, or an index.
  template <class Piece>
  [[nodiscard]] Piece* linked(int32_t link) const {
    return at_distance<Piece>(this, link >> 1);
  }

  /// The child itself, wherever its link leads to.
  [[nodiscard]] rp_hash_node* linked_child(int32_t link) const {
    return leads_to_index(link) ? linked<rp_hash_index>(link)->owner_node()
                                : linked<rp_hash_node>(link);
  }

 private:
  template <class Piece>
  static Piece* at_distance(const void* from, int32_t lines) {
    return reinterpret_cast<Piece*>(reinterpret_cast<intptr_t>(from) +
                                    int64_t{lines} * int64_t{kLine});
  }
};
