#include "rate/rp_hash.h"

#include <cstring>
#include <new>

#include "base/qvn_slab.h"

static_assert(sizeof(rp_hash_node) == 72, "the header states the size of a node");

namespace {

constexpr uint8_t kEmptyKeyDepth = 1;

// Nodes lie apart from the records, so that a search touches nothing but nodes.
thread_local constinit qvn_slab node_slab;

uint8_t key_byte(const char* key) {
  return static_cast<uint8_t>(*key);
}

/// Key lengths are cut to 8 bits.
uint8_t key_length(const char* key) {
  return static_cast<uint8_t>(std::strlen(key));
}

rp_hash_node* find_sibling(rp_hash_node* level, uint8_t ch) {
  rp_hash_node* node = level;
  while (node && node->ch != ch) {
    node = node->next;
  }
  return node;
}

/// Makes a node and puts it in front of the level whose first node `head` holds. Null without
/// memory.
rp_hash_node* add_to_level(rp_hash_node** head, rp_hash_node* parent, uint8_t ch, uint8_t depth) {
  void* const memory = node_slab.alloc(sizeof(rp_hash_node));
  if (!memory) {
    return nullptr;
  }
  auto* const node = new (memory) rp_hash_node{};
  node->ch = ch;
  node->depth = depth;
  node->parent = parent;
  node->next = *head;
  if (*head) {
    (*head)->prev = node;
  }
  *head = node;
  return node;
}

/// The node for one byte of a key: found, and then counted, or made.
rp_hash_node* enter(rp_hash_node** head, rp_hash_node* parent, uint8_t ch, uint8_t depth) {
  rp_hash_node* const found = find_sibling(*head, ch);
  if (found) {
    ++found->pass_count;
    return found;
  }
  return add_to_level(head, parent, ch, depth);
}

/// The deepest node on the key's path, or null when not even its first byte is there.
rp_hash_node* deepest_on_path(rp_hash_node* level, const char* key) {
  rp_hash_node* last = nullptr;
  for (; *key && level; ++key) {
    rp_hash_node* const found = find_sibling(level, key_byte(key));
    if (!found) {
      break;
    }
    last = found;
    level = found->children;
  }
  return last;
}

void unlink_and_free(rp_hash_node** slot, rp_hash_node* node) {
  rp_hash_node** const head = node->parent ? &node->parent->children : slot;
  if (*head == node) {
    *head = node->next;
  }
  if (node->prev) {
    node->prev->next = node->next;
  }
  if (node->next) {
    node->next->prev = node->prev;
  }
  qvn_slab::release(node);
}

/// Takes one insertion off every node from `node` up, freeing those that only it needed.
void undo_insertion(rp_hash_node** slot, rp_hash_node* node) {
  while (node) {
    rp_hash_node* const parent = node->parent;
    if (node->pass_count > 0) {
      --node->pass_count;
    } else if (!node->children && !node->sub) {
      unlink_and_free(slot, node);
    }
    node = parent;
  }
}

}  // namespace

rp_hash_node* rp_hash_create(rp_hash_node** slot, const char* key) {
  if (!slot || !key) {
    return nullptr;
  }
  const uint8_t length = key_length(key);
  rp_hash_node* node = nullptr;
  if (length == 0) {
    node = enter(slot, nullptr, 0, kEmptyKeyDepth);
  }
  rp_hash_node** head = slot;
  for (unsigned position = 1; position <= length; ++position, ++key) {
    node = enter(head, node, key_byte(key), static_cast<uint8_t>(position));
    if (!node) {
      return nullptr;
    }
    head = &node->children;
  }
  if (node) {
    node->terminal = 1;
  }
  return node;
}

rp_hash_node* rp_hash_search(rp_hash_node* const* slot, const char* key) {
  if (!slot || !key) {
    return nullptr;
  }
  for (rp_hash_node* node = deepest_on_path(*slot, key); node; node = node->parent) {
    if (node->terminal == 1) {
      return node;
    }
  }
  return find_sibling(*slot, 0);
}

rp_hash_node* rp_hash_match_all(rp_hash_node* const* slot, const char* key) {
  rp_hash_node* const node = rp_hash_search(slot, key);
  if (!node || node->terminal != 1) {
    return nullptr;
  }
  const std::size_t length = std::strlen(key);
  if (length == 0) {
    return node;  // nothing but the node of the empty key answers an empty key
  }
  // The default of the empty key has depth 1 too: it must not answer a key of one byte.
  return node->ch != 0 && node->depth == length ? node : nullptr;
}

int32_t rp_hash_delete(rp_hash_node** slot, const char* key, rp_hash_free_fn free_fn,
                       const void* argument) {
  rp_hash_node* const node = rp_hash_match_all(slot, key);
  if (!node) {
    return 0;
  }
  if (free_fn && node->items) {
    if (free_fn(node, argument) != 1) {
      return 0;
    }
    if (node->item_count != 0) {
      return 1;
    }
    node->terminal = 0;
    node->items = nullptr;
  }
  undo_insertion(slot, node);
  return 1;
}

int32_t rp_hash_destroy(rp_hash_node** slot, rp_hash_free_fn free_fn) {
  if (!slot || !*slot) {
    return 0;
  }
  rp_hash_node* node = *slot;
  while (node) {
    rp_hash_node* const next = node->next;
    (void)rp_hash_destroy(&node->children, free_fn);
    (void)rp_hash_destroy(&node->sub, free_fn);
    if (node->items) {
      (void)free_fn(node, nullptr);
    }
    qvn_slab::release(node);
    node = next;
  }
  *slot = nullptr;
  return 1;
}

int32_t rp_hash_record(rp_hash_node* const* slot, rp_hash_visit_fn visit, void* argument) {
  if (!slot || !*slot) {
    return 0;
  }
  for (rp_hash_node* node = *slot; node; node = node->next) {
    (void)rp_hash_record(&node->children, visit, argument);
    (void)rp_hash_record(&node->sub, visit, argument);
    if (node->items) {
      (void)visit(node, argument);
    }
  }
  return 1;
}
