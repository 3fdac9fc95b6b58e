/// A stack of small records that may be millions: the newest comes off first. It grows without
/// moving what it holds, and gives memory back while it shrinks.
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>

#include "base/qvn_slab.h"

/// Belongs to one thread at a time, as its slab does.
template <class Record>
class slab_stack {
  static_assert(std::is_trivially_copyable_v<Record> && std::is_trivially_destructible_v<Record>);

 public:
  slab_stack() = default;
  ~slab_stack() { clear(); }
  slab_stack(const slab_stack&) = delete;
  slab_stack& operator=(const slab_stack&) = delete;

  [[nodiscard]] bool empty() const { return newest_ == nullptr; }

  /// Adds a copy. False when memory runs out; the stack is then as it was.
  [[nodiscard]] bool push(const Record& record) {
    if (!newest_ || used_ == kRecords) {
      void* const memory = slab_.alloc(sizeof(chunk));
      if (!memory) {
        return false;
      }
      auto* const fresh = new (memory) chunk;
      fresh->older = newest_;
      newest_ = fresh;
      used_ = 0;
    }
    new (&newest_->memory[used_++ * sizeof(Record)]) Record(record);
    return true;
  }

  /// The record pushed last; the stack must not be empty.
  [[nodiscard]] const Record& top() const { return newest_->record(used_ - 1); }

  /// Takes the record pushed last off; the stack must not be empty.
  void pop() {
    if (--used_ > 0) {
      return;
    }
    chunk* const emptied = newest_;
    newest_ = emptied->older;
    used_ = newest_ ? kRecords : 0;
    qvn_slab::release(emptied);
  }

  void clear() {
    while (newest_) {
      used_ = 1;
      pop();
    }
  }

  /// Calls `look` with each record, the newest first, while it returns true.
  template <class Look>
  void look_through(Look look) const {
    std::size_t left = used_;
    for (const chunk* piece = newest_; piece; piece = piece->older, left = kRecords) {
      while (left > 0) {
        if (!look(piece->record(--left))) {
          return;
        }
      }
    }
  }

 private:
  static constexpr std::size_t kRecords = 256;  ///< of a chunk

  struct chunk {
    chunk* older;
    alignas(Record) std::byte memory[kRecords * sizeof(Record)];

    [[nodiscard]] const Record& record(std::size_t index) const {
      return *std::launder(reinterpret_cast<const Record*>(&memory[index * sizeof(Record)]));
    }
  };

  static inline thread_local constinit qvn_slab slab_;

  chunk* newest_ = nullptr;  ///< the only one that is not full, or none
  std::size_t used_ = 0;     ///< records in it, 1 or more while there is one
};
