/// The owner of a prefix tree: frees it with its nested trees and records. A tree belongs to the
/// thread of its job.
#pragma once

#include <utility>

#include "rate/rp_hash.h"

/// `kFree` frees the records of a node; see qvn_rate_table.h for the trees of each record.
template <rp_hash_free_fn kFree>
class rp_hash_owner {
 public:
  rp_hash_owner() = default;
  ~rp_hash_owner() { clear(); }
  rp_hash_owner(rp_hash_owner&& other) noexcept : root_(std::exchange(other.root_, nullptr)) {}
  rp_hash_owner& operator=(rp_hash_owner&& other) noexcept {
    std::swap(root_, other.root_);
    return *this;
  }

  /// Frees the whole tree now. The owner may be filled again.
  void clear() { (void)rp_hash_destroy(&root_, kFree); }

  /// Where the record of a key is linked in; null when memory runs out. With two keys: in the
  /// nested tree of the outer one.
  [[nodiscard]] rp_hash_node* create(const char* key) { return rp_hash_create(&root_, key); }
  [[nodiscard]] rp_hash_node* create(const char* outer, const char* key) {
    rp_hash_node* const node = create(outer);
    return node ? rp_hash_create(&node->sub, key) : nullptr;
  }

  /// First node of the top level; null when empty.
  [[nodiscard]] rp_hash_node* root() const { return root_; }

  /// For searches; valid as long as the owner.
  [[nodiscard]] rp_hash_node* const* slot() const { return &root_; }

 private:
  rp_hash_node* root_ = nullptr;
};
