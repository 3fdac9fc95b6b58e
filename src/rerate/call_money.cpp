#include "rerate/call_money.h"

#include <bit>
#include <charconv>

namespace {

constexpr uint32_t kMillion = 1'000'000;

// A single is fraction times 2^(exponent - 150); a normal one has a hidden bit before its 23 bits.
constexpr uint32_t kFractionBits = 23;
constexpr uint32_t kHiddenBit = 1U << kFractionBits;
constexpr uint32_t kExponentOfFraction = 150;
constexpr uint32_t kExponentOfTooMuch = 127 + 32;

/// Divided by a power of two and rounded to the nearest, halves to the even one.
uint64_t shifted_right(uint64_t value, uint32_t bits) {
  const uint64_t half = uint64_t{1} << (bits - 1);
  const uint64_t rest = value & (2 * half - 1);
  const uint64_t kept = value >> bits;
  return rest > half || (rest == half && (kept & 1U) != 0) ? kept + 1 : kept;
}

}  // namespace

std::optional<uint64_t> call_millionths(float amount) {
  // The product has at most 44 bits: of anything shifted farther less than half is left.
  constexpr uint32_t kFarthestShift = 45;
  const auto bits = std::bit_cast<uint32_t>(amount);
  const uint32_t exponent = bits >> kFractionBits;  // above 255 with a sign
  if (exponent >= kExponentOfTooMuch) {
    return std::nullopt;
  }
  const uint64_t product = uint64_t{kHiddenBit | (bits & (kHiddenBit - 1))} * kMillion;
  if (exponent >= kExponentOfFraction) {
    return product << (exponent - kExponentOfFraction);
  }
  const uint32_t shift = kExponentOfFraction - exponent;
  return shift > kFarthestShift ? 0 : shifted_right(product, shift);
}

std::string_view call_money_text(std::span<char, kMoneyTextSize> out, float amount) {
  const std::optional<uint64_t> millionths = call_millionths(amount);
  if (!millionths) {
    return qvn_money_text(out, amount);
  }
  char* const point =
      std::to_chars(out.data(), out.data() + out.size(), *millionths / kMillion).ptr;
  char* const end = point + 1 + kMillionthDigits;
  auto rest = static_cast<uint32_t>(*millionths % kMillion);
  for (char* digit = end - 1; digit > point; --digit, rest /= 10) {
    *digit = static_cast<char>('0' + rest % 10);
  }
  *point = '.';
  return {out.data(), end};
}
