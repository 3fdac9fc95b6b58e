/// A hash for tables whose keys come from outside: their author must not be able to choose
/// them so that all fall on one place. SipHash-2-4, under a key that the process draws for
/// itself. Any thread.
#pragma once

#include <cstdint>
#include <string_view>

struct qvn_hash_key {
  uint64_t low;
  uint64_t high;
};

/// The process's own key, drawn at the first call.
[[nodiscard]] const qvn_hash_key& qvn_process_hash_key();

[[nodiscard]] uint64_t qvn_keyed_hash(const qvn_hash_key& key, std::string_view text);
