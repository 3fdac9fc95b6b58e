#include "base/qvn_md5.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

namespace {

constexpr std::size_t kBlock = 64;  // bytes

/// The integer parts of 2^32 times |sin(i)|, i from 1 (RFC 1321, 3.4).
constexpr std::array<uint32_t, kBlock> kSines = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

/// By how much the steps of each round rotate.
constexpr int kRotations[4][4] = {
    {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

using digest = std::array<uint32_t, 4>;

uint32_t word_at(const unsigned char* bytes) {
  return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
         uint32_t{bytes[3]} << 24;
}

void add_block(digest& state, const unsigned char* block) {
  auto [a, b, c, d] = state;
  for (uint32_t step = 0; step < kBlock; ++step) {
    const uint32_t round = step / 16;
    const uint32_t mixed[] = {(b & c) | (~b & d), (d & b) | (~d & c), b ^ c ^ d, c ^ (b | ~d)};
    const uint32_t word[] = {step, 5 * step + 1, 3 * step + 5, 7 * step};
    const uint32_t sum =
        a + mixed[round] + kSines[step] + word_at(block + std::size_t{word[round] % 16} * 4);
    a = d;
    d = c;
    c = b;
    b += std::rotl(sum, kRotations[round][step % 4]);
  }
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

/// The text's last bytes, a one bit, zeros, and the text's length in bits.
void add_end(digest& state, std::span<const unsigned char> rest, uint64_t length) {
  constexpr std::size_t kLengthSize = 8;
  std::array<unsigned char, 2 * kBlock> last{};
  std::ranges::copy(rest, last.begin());
  last[rest.size()] = 0x80;
  const std::size_t end = rest.size() + kLengthSize < kBlock ? kBlock : 2 * kBlock;
  for (std::size_t i = 0; i < kLengthSize; ++i) {
    last[end - kLengthSize + i] = static_cast<unsigned char>(length * 8 >> (8 * i) & 0xFF);
  }
  for (std::size_t block = 0; block < end; block += kBlock) {
    add_block(state, last.data() + block);
  }
}

}  // namespace

qvn_md5_text qvn_md5(std::string_view text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  digest state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  std::span bytes(reinterpret_cast<const unsigned char*>(text.data()), text.size());
  for (; bytes.size() >= kBlock; bytes = bytes.subspan(kBlock)) {
    add_block(state, bytes.data());
  }
  add_end(state, bytes, text.size());
  qvn_md5_text result{};
  for (std::size_t i = 0; i < 16; ++i) {
    const uint32_t byte = state[i / 4] >> (i % 4 * 8) & 0xFF;
    result[2 * i] = kDigits[byte >> 4];
    result[2 * i + 1] = kDigits[byte & 0xF];
  }
  return result;
}
