#pragma once

#include <bit>
#include <cstdint>

namespace SCR::Code {

/// How to divide by a constant with a multiplication: the upper half of the product with `factor`,
/// plus the number if the divisor is positive and the factor negative, minus the number if it is
/// the other way round, shifted right by `shift`, and plus 1 if that is negative. (Henry S. Warren,
/// "Hacker's Delight", 2nd edition, section 10-1.)
struct Divisor {
    std::int64_t factor;
    int shift;

    /// For a divisor other than -1, 0 and 1.
    static constexpr Divisor of(std::int64_t divisor) {
        __extension__ using Wide = unsigned __int128;
        constexpr std::uint64_t half = std::uint64_t{1} << 63;
        const std::uint64_t size = divisor < 0 ? 0 - static_cast<std::uint64_t>(divisor)
                                               : static_cast<std::uint64_t>(divisor);
        // The greatest number whose remainder is that of the divisor minus 1.
        const std::uint64_t bound = half + (divisor < 0 ? 1 : 0);
        const std::uint64_t greatest = bound - 1 - bound % size;
        // The smallest power of 2 that is great enough.
        int power = 63;
        const auto fits = [&](int exponent) {
            const Wide whole = Wide{1} << exponent;
            return whole > Wide{greatest} * (size - static_cast<std::uint64_t>(whole % size));
        };
        while (!fits(++power)) {
        }
        const Wide whole = Wide{1} << power;
        const auto factor = static_cast<std::uint64_t>(
            (whole + size - static_cast<std::uint64_t>(whole % size)) / size);
        return {static_cast<std::int64_t>(divisor < 0 ? 0 - factor : factor), power - 64};
    }
};

/// How to see whether a number is a multiple: its product with `factor`, plus `sum`, rotated right
/// by `rotation`, is at most `greatest`, without signs. (Section 10-17 of the same book.)
struct MultipleTest {
    std::uint64_t factor;
    std::uint64_t sum;
    int rotation;
    std::uint64_t greatest;

    /// Of a `size` below 2 to the power of 63 that is no power of 2.
    static constexpr MultipleTest of(std::uint64_t size) {
        const int twos = std::countr_zero(size);
        const std::uint64_t odd = size >> twos;
        // Each step of Newton's method doubles the number of right bits.
        std::uint64_t inverse = odd;
        for (int bits = 3; bits < 64; bits *= 2) inverse *= 2 - odd * inverse;
        constexpr std::uint64_t most = (std::uint64_t{1} << 63) - 1;
        const std::uint64_t sum = most / odd >> twos << twos;
        return {inverse, sum, twos, 2 * sum >> twos};
    }
};

}  // namespace SCR::Code
