#include "rerate/cdr_list.h"

#include <cstring>
#include <new>

/// The line's text and its NUL follow.
struct cdr_list::node {
  node* next;
  [[nodiscard]] char* line() { return reinterpret_cast<char*>(this + 1); }
};

bool cdr_list::add(std::string_view line) {
  void* const memory = slab_.alloc(sizeof(node) + line.size() + 1);
  if (!memory) {
    return false;
  }
  node* const added = new (memory) node{};
  std::memcpy(added->line(), line.data(), line.size());
  added->line()[line.size()] = '\0';
  (last_ ? last_->next : first_) = added;
  last_ = added;
  ++count_;
  return true;
}

char* cdr_list::first() {
  return first_ ? first_->line() : nullptr;
}

void cdr_list::drop_first() {
  node* const dropped = first_;
  first_ = dropped->next;
  if (!first_) {
    last_ = nullptr;
  }
  --count_;
  qvn_slab::release(dropped);
}

void cdr_list::clear() {
  while (first_) {
    drop_first();
  }
}
