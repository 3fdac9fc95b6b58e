#include "base/qvn_mem_home.h"

#include <cstring>
#include <new>

void* qvn_mem_home_variable_alloc(qvn_mem_home* home, std::size_t size) {
  void* block = ::operator new(size, std::nothrow);
  if (!block) {
    return nullptr;
  }
  auto* node = new (std::nothrow) qvn_mem_node{block, *home};
  if (!node) {
    ::operator delete(block);
    return nullptr;
  }
  *home = node;
  return std::memset(block, 0, size);
}

char* qvn_mem_home_strdup(qvn_mem_home* home, const char* text) {
  if (!text || *text == '\0') {
    return nullptr;
  }
  const std::size_t size = std::strlen(text) + 1;
  void* copy = qvn_mem_home_variable_alloc(home, size);
  if (copy) {
    std::memcpy(copy, text, size);
  }
  return static_cast<char*>(copy);
}

int qvn_mem_home_destroy(qvn_mem_home* home) {
  while (qvn_mem_node* node = *home) {
    *home = node->next;
    ::operator delete(node->block);
    delete node;
  }
  return 0;
}
