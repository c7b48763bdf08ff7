// Integers of a fixed width where the language leaves them open.
//
// `long` is 32 bits wide on Windows and 64 bits on 64-bit Linux. What is stored in a `long` or returned as one is
// reduced to its low 32 bits, so that both builds give the same numbers.
#pragma once

#include <cstdint>
#include <limits>

namespace platform {

/// The low 32 bits of a 64-bit number, taken as signed.
constexpr std::int32_t Low32(std::int64_t value) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(value)));
}

/// Sum and product in 32 bits that wrap around instead of being undefined.
constexpr std::int32_t WrapAdd(std::int32_t a, std::int32_t b) {
    return Low32(static_cast<std::int64_t>(a) + b);
}
constexpr std::int32_t WrapMultiply(std::int32_t a, std::int32_t b) {
    return Low32(static_cast<std::int64_t>(a) * b);
}

/// A double truncated toward zero; NaN gives 0, what lies outside gives the nearest end of the range.
constexpr std::int64_t TruncateToInt64(double value) {
    constexpr double kTwo63 = 9223372036854775808.0;
    if (value != value) return 0;
    if (value >= kTwo63) return std::numeric_limits<std::int64_t>::max();
    if (value < -kTwo63) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(value);
}

/// As `TruncateToInt64`, for 32 bits.
constexpr std::int32_t TruncateToInt32(double value) {
    if (value != value) return 0;
    if (value >= 2147483647.0) return std::numeric_limits<std::int32_t>::max();
    if (value <= -2147483648.0) return std::numeric_limits<std::int32_t>::min();
    return static_cast<std::int32_t>(value);
}

/// Multiplies `total` by `factor`; false (and `total` unchanged) when the product does not fit.
constexpr bool MultiplyChecked(std::uint64_t& total, std::uint64_t factor) {
    if (factor != 0 && total > std::numeric_limits<std::uint64_t>::max() / factor) return false;
    total *= factor;
    return true;
}

}  // namespace platform
