#pragma once

#include <algorithm>
#include <cstdint>

#include "fnd/Decimal.h"
#include "fnd/number/WideInteger.h"

// Shared by the files that implement `FND::Decimal`; not part of the public interface.

namespace FND {

/// The parts of a decimal: sign, magnitude of the coefficient, scale.
struct Decimal::Parts {
    UInt128 magnitude;
    int scale;
    bool negative;

    /// Splits a valid number.
    explicit Parts(Decimal number) noexcept : scale(number.scale()) {
        if (number.isSmall()) {
            negative = number.low_ < 0;
            magnitude = static_cast<std::uint64_t>(negative ? -number.low_ : number.low_);
        } else {
            negative = (number.high_ & negativeCM) != 0;
            magnitude = joinWords(number.high_ >> 32, static_cast<std::uint64_t>(number.low_));
        }
    }

    /// Joins a number whose magnitude has at most 28 digits and whose scale is 0 to 28.
    static Decimal join(bool negative, UInt128 magnitude, int scale) noexcept {
        const auto low = static_cast<std::int64_t>(magnitude);
        if (magnitude < static_cast<UInt128>(smallLimitCM)) [[likely]] {
            return {negative ? -low : low, static_cast<std::uint64_t>(scale)};
        }
        return {low, highWord(magnitude) << 32 | wideCM | (negative ? negativeCM : 0) |
                         static_cast<std::uint64_t>(scale)};
    }

    /// Like `join`, for a magnitude of at most `precision` digits; adds 1 to it if `up`. The
    /// invalid value when that gives one digit too many and no digit can be dropped.
    static Decimal joinRounded(bool negative, UInt128 magnitude, int scale, bool up,
                               int precision) noexcept {
        magnitude += up ? 1 : 0;
        if (magnitude == powerOf10(precision)) [[unlikely]] {
            if (scale == 0) return invalid();
            magnitude /= 10;
            --scale;
        }
        return join(negative, magnitude, scale);
    }

    /// The number with any magnitude (192 bits: `upper` holds the highest 64) and any scale that is
    /// not negative, rounded half to even to the digits available and a scale of 28. Invalid when
    /// the integer part has too many digits. `more` means that the true magnitude is greater by
    /// less than 1; the magnitude must have too many digits then. Takes words, as these are passed
    /// in registers.
    static Decimal fit(bool negative, UInt128 magnitude, int scale, bool more = false,
                       std::uint64_t upper = 0) noexcept;

    static Decimal fromQuotient(bool negative, UInt128 magnitude, int scale, int ideal,
                                bool isExact, bool up) noexcept;
};

/// Significant digits that results have at present.
inline int decimalPrecision() noexcept { return FND_MAX28DIGIT_DECIMAL_SUPPORT ? 28 : 18; }

/// `places` limited to 0 to 28.
inline int clampPlaces(int places) noexcept { return std::clamp(places, 0, Decimal::maxScaleCM); }

}  // namespace FND
