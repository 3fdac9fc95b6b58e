/// Memory for the records that exist a million times: tree nodes, rates, import records.
///
/// A slab hands out zeroed pieces one after the other from blocks of 2 MiB that come from the
/// kernel and go back to it. A piece has no header; the block around it is found from its address
/// and counts its live pieces. A released piece is not used again; its block goes back when its
/// last piece is released. So loading is a pointer increment, neighbours in time are neighbours in
/// memory, and a finished job's memory really leaves the process. From the third block on a slab
/// asks for huge pages.
///
/// A slab and all its pieces belong to one thread, which unoptimised builds and those with a
/// sanitizer assert. It has no destructor: with its last piece released it owns nothing. Under the
/// address sanitizer what is not part of a piece, or of one no more, must not be touched.
#pragma once

#include <cstddef>
#include <string_view>

class qvn_slab {
 public:
  constexpr qvn_slab() = default;
  qvn_slab(const qvn_slab&) = delete;
  qvn_slab& operator=(const qvn_slab&) = delete;

  /// A zeroed piece of `size` bytes, aligned to 8; to a cache line of 64 when all pieces of the
  /// slab are whole lines. Null when memory runs out.
  [[nodiscard]] void* alloc(std::size_t size) noexcept;

  /// Gives a piece back, whichever slab of this thread it came from.
  static void release(void* piece) noexcept;

 private:
  struct block;
  block* current_ = nullptr;  ///< the block that pieces are cut from, or none
  std::size_t blocks_ = 0;    ///< blocks that pieces live in
};

/// Bytes of a text after a record in the same piece, its NUL included; none for an empty text.
[[nodiscard]] inline std::size_t qvn_stored_size(std::string_view text) {
  return text.empty() ? 0 : text.size() + 1;
}

/// Copies a text to `end`, which moves past it; null for an empty text.
const char* qvn_store_text(char*& end, std::string_view text);
