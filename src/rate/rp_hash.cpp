#include "rate/rp_hash.h"

#include <array>
#include <cstring>
#include <new>
#include <utility>

#include "base/qvn_prefetch.h"
#include "base/qvn_slab.h"
#include "rate/rp_hash_index.h"

namespace {

constexpr uint8_t kEmptyKeyDepth = 1;
static_assert(sizeof(rp_hash_node) == rp_hash_index::kLine, "the header states the size of a node");

// Apart from the records, so that a search touches little memory. All pieces of the slab are a line
// long, so each begins one.
thread_local constinit qvn_slab node_slab;

uint8_t key_byte(const char* key) {
  return static_cast<uint8_t>(*key);
}

rp_hash_node* find_sibling(rp_hash_node* level, uint8_t ch) {
  rp_hash_node* node = level;
  while (node && node->ch != ch) {
    node = node->next;
  }
  return node;
}

rp_hash_node* find_child(const rp_hash_node* parent, uint8_t ch) {
  rp_hash_index* const index = rp_hash_index::of(parent);
  const int32_t* const link = index ? index->link_of(ch) : nullptr;
  if (link && *link != 0) {
    return index->linked_child(*link);
  }
  return link && !index->partial ? nullptr : find_sibling(parent->children, ch);
}

void set_terminal(rp_hash_node* node, uint8_t terminal) {
  node->terminal = terminal;
  if (rp_hash_index* const index = rp_hash_index::of(node)) {
    index->terminal = terminal;
  }
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
  if (!parent) {
    return node;
  }
  if (rp_hash_index* const index = rp_hash_index::of(parent)) {
    index->add(node);
  } else if (node->next) {
    rp_hash_index::make(parent);
  }
  return node;
}

/// The node for one byte of a key: found, and then counted, or made.
rp_hash_node* enter(rp_hash_node** slot, rp_hash_node* parent, uint8_t ch, uint8_t depth) {
  rp_hash_node* const found = parent ? find_child(parent, ch) : find_sibling(*slot, ch);
  if (found) {
    ++found->pass_count;
    return found;
  }
  return add_to_level(parent ? &parent->children : slot, parent, ch, depth);
}

/// A search on its way down. Each step looks at one index, or at one level's list, and has what
/// comes next brought into the cache: between two steps other searches can take theirs.
class descent {
 public:
  descent() = default;
  descent(rp_hash_node* top_level, std::string_view key)
      : key_(key.data()),
        end_(key.data() + key.size()),
        level_(key.empty() ? nullptr : top_level) {}

  /// The longest match so far, or null.
  [[nodiscard]] rp_hash_node* best() const { return best_; }

  /// False at the end of the way.
  bool step() { return index_ ? step_in_index() : level_ && step_in_level(); }

  /// All steps at once.
  void walk() {
    while (level_ && step_in_level()) {
      while (index_) {
        if (!step_in_index()) {
          return;
        }
      }
    }
  }

 private:
  bool step_in_index() {
    if (index_->terminal == 1) {
      best_ = index_->owner_node();
    }
    if (key_ == end_) {
      return false;
    }
    rp_hash_index* const index = std::exchange(index_, nullptr);
    const int32_t* const link = index->link_of(key_byte(key_));
    if (!link || (*link == 0 && index->partial)) {
      return enter_level(index->owner_node()->children);
    }
    if (!rp_hash_index::leads_to_index(*link)) {
      return *link != 0 && enter_level(index->linked<rp_hash_node>(*link));
    }
    ++key_;
    return enter_index(index->linked<rp_hash_index>(*link));
  }

  bool step_in_level() {
    rp_hash_node* const node = find_sibling(level_, key_byte(key_));
    if (!node) {
      return false;
    }
    if (node->terminal == 1) {
      best_ = node;
    }
    if (++key_ == end_) {
      return false;
    }
    return node->index != 0 ? enter_index(rp_hash_index::of(node)) : enter_level(node->children);
  }

  bool enter_index(rp_hash_index* index) {
    index_ = index;
    qvn_prefetch(index);
    return true;
  }

  bool enter_level(rp_hash_node* first) {
    level_ = first;
    qvn_prefetch(first);
    return first != nullptr;
  }

  const char* key_ = nullptr;  ///< the byte to be looked for next
  const char* end_ = nullptr;
  rp_hash_index* index_ = nullptr;  ///< where to look for it, or null: in the level
  rp_hash_node* level_ = nullptr;   ///< from this node on; null: nowhere
  rp_hash_node* best_ = nullptr;
};

/// Has the children brought into the cache while something else is done: a walk over a large tree
/// would wait for memory at every node.
void fetch_children(const rp_hash_node* node) {
  const rp_hash_index* const index = rp_hash_index::of(node);
  if (!index) {
    qvn_prefetch(node->children);
    return;
  }
  for (const int32_t link : index->child) {
    if (link != 0) {
      qvn_prefetch(index->linked_child(link));
    }
  }
}

void release_node(rp_hash_node* node) {
  qvn_slab::release(rp_hash_index::of(node));
  qvn_slab::release(node);
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
  rp_hash_index* const level = node->parent ? rp_hash_index::of(node->parent) : nullptr;
  if (int32_t* const link = level ? level->link_of(node->ch) : nullptr) {
    *link = 0;
  }
  release_node(node);
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
  const auto length = static_cast<uint8_t>(std::strlen(key));  // cut to 8 bits
  rp_hash_node* node = nullptr;
  if (length == 0) {
    node = enter(slot, nullptr, 0, kEmptyKeyDepth);
  }
  for (unsigned position = 1; position <= length; ++position, ++key) {
    node = enter(slot, node, key_byte(key), static_cast<uint8_t>(position));
    if (!node) {
      return nullptr;
    }
  }
  if (node) {
    set_terminal(node, 1);
  }
  return node;
}

rp_hash_node* rp_hash_search(rp_hash_node* const* slot, const char* key) {
  if (!slot || !key) {
    return nullptr;
  }
  descent way(*slot, key);
  way.walk();
  return way.best() ? way.best() : find_sibling(*slot, 0);
}

void rp_hash_search_each(rp_hash_node* const* slot, std::span<const std::string_view> keys,
                         rp_hash_node** found) {
  std::array<descent, kRpHashInFlight> ways;
  std::array<uint8_t, kRpHashInFlight> walking;
  const auto count = static_cast<uint8_t>(keys.size());
  for (uint8_t i = 0; i < count; ++i) {
    ways[i] = descent(*slot, keys[i]);
    walking[i] = i;
  }
  for (std::size_t left = count; left > 0;) {
    for (std::size_t i = 0; i < left;) {
      if (ways[walking[i]].step()) {
        ++i;
      } else {
        qvn_prefetch(ways[walking[i]].best());
        walking[i] = walking[--left];
      }
    }
  }
  for (uint8_t i = 0; i < count; ++i) {
    found[i] = ways[i].best() ? ways[i].best() : find_sibling(*slot, 0);
  }
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
    set_terminal(node, 0);
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
  fetch_children(node);
  while (node) {
    rp_hash_node* const next = node->next;
    if (next) {
      fetch_children(next);
    }
    (void)rp_hash_destroy(&node->children, free_fn);
    (void)rp_hash_destroy(&node->sub, free_fn);
    if (node->items) {
      (void)free_fn(node, nullptr);
    }
    release_node(node);
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
