#include "base/qvn_keyed_hash.h"

#include <bit>
#include <cstring>
#include <sys/random.h>
#include <time.h>
#include <unistd.h>

namespace {

static_assert(std::endian::native == std::endian::little, "words are taken as they lie");

constexpr std::size_t kWord = sizeof(uint64_t);

struct sip_state {
  uint64_t v0, v1, v2, v3;

  void round() {
    v0 += v1;
    v1 = std::rotl(v1, 13) ^ v0;
    v0 = std::rotl(v0, 32);
    v2 += v3;
    v3 = std::rotl(v3, 16) ^ v2;
    v0 += v3;
    v3 = std::rotl(v3, 21) ^ v0;
    v2 += v1;
    v1 = std::rotl(v1, 17) ^ v2;
    v2 = std::rotl(v2, 32);
  }

  void take(uint64_t word) {
    v3 ^= word;
    round();
    round();
    v0 ^= word;
  }

  uint64_t end() {
    v2 ^= 0xff;
    for (int i = 0; i < 4; ++i) {
      round();
    }
    return v0 ^ v1 ^ v2 ^ v3;
  }
};

/// The bytes after the last whole word, below the length's last byte.
uint64_t last_word(const char* rest, std::size_t length) {
  uint64_t word = 0;
  std::memcpy(&word, rest, length % kWord);
  return word | uint64_t{length} << 56;
}

qvn_hash_key draw_key() {
  qvn_hash_key key{};
  if (getrandom(&key, sizeof key, 0) != static_cast<ssize_t>(sizeof key)) {
    // A kernel without it: what an author of decks still cannot know.
    timespec time{};
    (void)clock_gettime(CLOCK_REALTIME, &time);
    key.low = reinterpret_cast<uintptr_t>(&key) ^ static_cast<uint64_t>(getpid()) << 32;
    key.high = static_cast<uint64_t>(time.tv_sec) << 30 ^ static_cast<uint64_t>(time.tv_nsec);
  }
  return key;
}

}  // namespace

const qvn_hash_key& qvn_process_hash_key() {
  static const qvn_hash_key key = draw_key();
  return key;
}

uint64_t qvn_keyed_hash(const qvn_hash_key& key, std::string_view text) {
  sip_state state{key.low ^ 0x736f6d6570736575, key.high ^ 0x646f72616e646f6d,
                  key.low ^ 0x6c7967656e657261, key.high ^ 0x7465646279746573};
  const char* const rest = text.data() + text.size() / kWord * kWord;
  for (const char* place = text.data(); place != rest; place += kWord) {
    uint64_t word = 0;
    std::memcpy(&word, place, kWord);
    state.take(word);
  }
  state.take(last_word(rest, text.size()));
  return state.end();
}
