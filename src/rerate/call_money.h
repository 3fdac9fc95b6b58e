/// Amounts of money as call records show them: six decimals, as "%f" prints them. The ordinary ones
/// are worked out in whole millionths, which costs a tenth of a conversion of floating point.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "base/qvn_text.h"

inline constexpr uint32_t kMillionthDigits = 6;

/// The millionths that "%f" would show; none for an amount that is negative, 2^32 or more, or no
/// number.
[[nodiscard]] std::optional<uint64_t> call_millionths(float amount);

/// What qvn_money_text gives.
[[nodiscard]] std::string_view call_money_text(std::span<char, kMoneyTextSize> out, float amount);
