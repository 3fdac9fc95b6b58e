/// Has memory brought into the cache while something else is done.
#pragma once

/// The cache line at `place`, which may be any address.
inline void qvn_prefetch(const void* place) {
  // GCC 12 takes a function that only prefetches for one without effect and drops its calls.
  asm volatile("");
  __builtin_prefetch(place);
}
