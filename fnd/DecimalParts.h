#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

#include "fnd/Decimal.h"

// What the files that implement `FND::Decimal` share; not part of the public interface.

namespace FND {

__extension__ typedef unsigned __int128 UInt128;

/// 192 bits: enough for the exact sum and product of any two decimals.
struct UInt192 {
    UInt128 low = 0;
    std::uint64_t high = 0;
};

/// A decimal taken apart: sign, magnitude of the coefficient, scale.
struct Decimal::Parts {
    UInt128 magnitude;
    int scale;
    bool negative;

    /// Takes a valid number apart.
    explicit Parts(Decimal number) noexcept : scale(number.scale()) {
        if (number.isSmall()) {
            negative = number.low_ < 0;
            magnitude = static_cast<std::uint64_t>(negative ? -number.low_ : number.low_);
        } else {
            negative = (number.high_ & negativeCM) != 0;
            magnitude = static_cast<UInt128>(number.high_ >> 32) << 64 |
                        static_cast<std::uint64_t>(number.low_);
        }
    }

    /// Puts a number together whose magnitude has at most 28 digits and whose scale is 0 to 28.
    static Decimal join(bool negative, UInt128 magnitude, int scale) noexcept {
        const auto low = static_cast<std::int64_t>(magnitude);
        if (magnitude < static_cast<UInt128>(smallLimitCM)) [[likely]] {
            return {negative ? -low : low, static_cast<std::uint64_t>(scale)};
        }
        return {low, static_cast<std::uint64_t>(magnitude >> 64) << 32 | wideCM |
                         (negative ? negativeCM : 0) | static_cast<std::uint64_t>(scale)};
    }

    /// As `join`, for a magnitude of at most `precision` digits to which 1 is added when `up` says
    /// so. The invalid value when that makes a digit too many and none can be given up.
    static Decimal joinRounded(bool negative, UInt128 magnitude, int scale, bool up,
                               int precision) noexcept;

    /// The number of any magnitude and scale (negative scales excepted), rounded half to even to
    /// the digits available and a scale of 28. Invalid when the integer part has too many digits.
    /// `more` says that the true magnitude is greater than `magnitude`, by less than 1; then
    /// `magnitude` has to have too many digits.
    static Decimal fit(bool negative, UInt192 magnitude, int scale, bool more = false) noexcept;
};

/// The powers of ten that 128 bits hold.
inline constexpr auto powersOf10S = [] {
    std::array<UInt128, 39> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i) powers[i] = powers[i - 1] * 10;
    return powers;
}();

/// The powers of ten that 64 bits hold.
inline constexpr auto smallPowersOf10S = [] {
    std::array<std::uint64_t, 20> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i) powers[i] = powers[i - 1] * 10;
    return powers;
}();

/// Significant digits that results have at present.
inline int decimalPrecision() noexcept { return FND_MAX28DIGIT_DECIMAL_SUPPORT ? 28 : 18; }

/// `places` limited to 0 to 28.
inline int clampPlaces(int places) noexcept { return std::clamp(places, 0, Decimal::maxScaleCM); }

/// Decimal digits of a number; 0 for 0.
inline int digitCount(UInt128 number) noexcept {
    const auto high = static_cast<std::uint64_t>(number >> 64);
    const auto bits =
        high != 0 ? 64 + std::bit_width(high) : std::bit_width(static_cast<std::uint64_t>(number));
    // 1233 / 4096 is log10(2), near enough for 128 bits; the count may be one short.
    const auto count = static_cast<std::size_t>(bits) * 1233 >> 12;
    return static_cast<int>(count) + (number >= powersOf10S[count] ? 1 : 0);
}

}  // namespace FND
