/// The one generic keyed table: keys are texts, values are non-zero pointer-sized words that stay
/// with their owner. A chained hash table whose size is a power of two and grows by doubling; its
/// elements are also kept on one doubly linked list, so that the whole table can be walked from
/// `first` along `next`.
///
///     htable   [ count 2 | head ]---------+     [ count 1 | head ]---+
///                                         v                          v
///     first -> [e]<->[e]<->[e]<->...     [e]<->[e]       <->        [e]<->... -> none
///
/// All elements of one bucket stand next to each other in the list, beginning at the bucket's head,
/// `count` of them. The order of the list is behaviour: the poller and the console walk it.
///
/// Bytes (x86-64): table 24, bucket 16, element 40 plus its key in the same block.
///
/// There is no lock inside: each table is guarded by its owner. Removing or inserting during a walk
/// is not supported. The daemon itself does without qvn_hash_insert_ext, qvn_hash_find_ext and
/// qvn_hash_this.
#pragma once

#include <cstdint>

/// A value: a pointer in most tables. 0 means no value and cannot be stored.
using qvn_hash_value = std::uintptr_t;

struct qvn_hash_element {
  qvn_hash_element* next;  ///< element list
  qvn_hash_element* prev;  ///< element list
  qvn_hash_value data;     ///< the value, owned by the table's user
  char* key;               ///< the element's own copy of the key bytes
  int32_t keylen;          ///< bytes of the key, its terminating NUL included
};

struct qvn_hash_bucket {
  int32_t count;           ///< elements that hash here
  qvn_hash_element* head;  ///< the first of them in the element list
};

struct qvn_hash_table {
  int32_t count;            ///< elements in the table
  qvn_hash_element* first;  ///< first element of the element list
  uint32_t htsize;          ///< buckets: 0 or a power of two
  qvn_hash_bucket* htable;  ///< bucket array, or none when the table is empty
};

/// Makes the table empty without looking at what it held.
void qvn_hash_init(qvn_hash_table* table);

/// Adds, finds or removes. With a non-zero value: 0 when the key was added; the stored value,
/// unchanged, when the key was there already; the given value when memory ran out. With value 0:
/// the key is removed and its value returned, 0 when there was none.
[[nodiscard]] qvn_hash_value qvn_hash_insert(qvn_hash_table* table, const char* key,
                                             qvn_hash_value value);

/// As qvn_hash_insert. When `keylen` is given and above 0, it and `*hash` are used; otherwise both
/// are computed and stored through whichever pointers are given.
[[nodiscard]] qvn_hash_value qvn_hash_insert_ext(qvn_hash_table* table, const char* key,
                                                 qvn_hash_value value, int32_t* keylen,
                                                 uint32_t* hash);

/// The value of the key, or 0 when the table is absent or empty or has no such key.
[[nodiscard]] qvn_hash_value qvn_hash_find(const qvn_hash_table* table, const char* key);

/// As qvn_hash_find; a `keylen` below 1 means to compute length and hash from the key.
[[nodiscard]] qvn_hash_value qvn_hash_find_ext(const qvn_hash_table* table, const char* key,
                                               int32_t keylen, uint32_t hash);

/// The parts of an element; each output is optional. The key stays the element's own.
void qvn_hash_this(const qvn_hash_element* element, const char** key, int32_t* keylen,
                   qvn_hash_value* value);

/// Releases every element and the bucket array and leaves the table empty; values stay with their
/// owner.
void qvn_hash_clear(qvn_hash_table* table);
