/// Memory home: a caller-owned head of a list of blocks that are released together, never one by
/// one. A home is used by one thread at a time. The daemon itself has no memory home.
#pragma once

#include <cstddef>

struct qvn_mem_node {
  void* block;         ///< one allocated block, owned
  qvn_mem_node* next;  ///< the node pushed before this one
};

/// An empty home is null; the caller keeps the head and hands over its address.
using qvn_mem_home = qvn_mem_node*;

/// A zeroed block of `size` bytes, registered at the front of the home; none when memory runs out.
[[nodiscard]] void* qvn_mem_home_variable_alloc(qvn_mem_home* home, std::size_t size);

/// A copy of the text, registered the same way; none for an absent or empty text or when memory
/// runs out.
[[nodiscard]] char* qvn_mem_home_strdup(qvn_mem_home* home, const char* text);

/// Releases every block and node and sets the head to none. Returns 0.
int qvn_mem_home_destroy(qvn_mem_home* home);
