#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

// Unsigned integers of 128 and 192 bits for the coefficients of decimals and intermediate results.
// Not part of the public interface.

namespace FND {

__extension__ typedef unsigned __int128 UInt128;

/// 192 bits: enough for the exact sum and product of any two decimals.
struct UInt192 {
    UInt128 low = 0;
    std::uint64_t high = 0;
};

constexpr std::uint64_t lowWord(UInt128 number) noexcept {
    return static_cast<std::uint64_t>(number);
}
constexpr std::uint64_t highWord(UInt128 number) noexcept {
    return static_cast<std::uint64_t>(number >> 64);
}
constexpr UInt128 joinWords(std::uint64_t high, std::uint64_t low) noexcept {
    return static_cast<UInt128>(high) << 64 | low;
}

constexpr bool isLess(const UInt192& left, const UInt192& right) noexcept {
    return left.high != right.high ? left.high < right.high : left.low < right.low;
}

constexpr UInt192 sum(const UInt192& left, const UInt192& right) noexcept {
    const UInt128 low = left.low + right.low;
    return {low, left.high + right.high + (low < left.low ? 1 : 0)};
}

/// Minus `number` (two's complement) if `negate` says so, else `number`.
constexpr UInt128 negated(UInt128 number, bool negate) noexcept {
    const UInt128 mask = negate ? ~UInt128{0} : 0;
    return (number ^ mask) - mask;
}

/// The same of 192 bits.
constexpr UInt192 negated(const UInt192& number, bool negate) noexcept {
    const UInt128 low = negated(number.low, negate);
    const std::uint64_t mask = negate ? ~std::uint64_t{0} : 0;
    return {low, (number.high ^ mask) + (low == 0 ? mask & 1 : 0)};
}

constexpr bool isNegative(UInt128 number) noexcept { return number >> 127 != 0; }
constexpr bool isNegative(const UInt192& number) noexcept { return number.high >> 63 != 0; }

/// `left` - `right`, which must not be greater.
constexpr UInt192 difference(const UInt192& left, const UInt192& right) noexcept {
    return {left.low - right.low, left.high - right.high - (left.low < right.low ? 1 : 0)};
}

/// `number` shifted to the left by 0 to 191 bits; no bit may be lost.
constexpr UInt192 shiftedLeft(UInt128 number, int bits) noexcept {
    if (bits >= 128) return {0, lowWord(number) << (bits - 128)};
    return {number << bits, bits == 0 ? 0 : lowWord(number >> (128 - bits))};
}

/// The product of two numbers of less than 96 bits each, or of any that fits 192 bits when one of
/// them is a single word.
constexpr UInt192 product(UInt128 left, UInt128 right) noexcept {
    const UInt128 left0 = lowWord(left);
    const UInt128 right0 = lowWord(right);
    const UInt128 left1 = highWord(left);
    const UInt128 right1 = highWord(right);
    const UInt128 bottom = left0 * right0;
    // Below 96 bits the two cross products and the carry fit 128.
    const UInt128 middle = left0 * right1 + left1 * right0 + highWord(bottom);
    return {joinWords(lowWord(middle), lowWord(bottom)),
            highWord(middle) + lowWord(left1 * right1)};
}

/// The upper 128 bits of the product.
constexpr UInt128 productHigh(UInt128 left, UInt128 right) noexcept {
    const UInt128 left0 = lowWord(left);
    const UInt128 right0 = lowWord(right);
    const UInt128 left1 = highWord(left);
    const UInt128 right1 = highWord(right);
    const UInt128 cross1 = left0 * right1 + highWord(left0 * right0);
    const UInt128 cross2 = left1 * right0 + lowWord(cross1);
    return left1 * right1 + highWord(cross1) + highWord(cross2);
}

struct QuotientRemainder {
    std::uint64_t quotient;
    std::uint64_t remainder;
};

/// Divides `high` * 2^64 + `low` by `divisor`; `high` must be less than `divisor`.
inline QuotientRemainder divideWords(std::uint64_t high, std::uint64_t low,
                                     std::uint64_t divisor) noexcept {
#if defined(__x86_64__)
    QuotientRemainder result;
    __asm__("divq %[divisor]"
            : "=a"(result.quotient), "=d"(result.remainder)
            : [divisor] "r"(divisor), "a"(low), "d"(high)
            : "cc");
    return result;
#else
    const UInt128 number = joinWords(high, low);
    return {lowWord(number / divisor), lowWord(number % divisor)};
#endif
}

/// The powers of ten that 64 bits hold.
inline constexpr auto smallPowersOf10S = [] {
    std::array<std::uint64_t, 20> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i) powers[i] = powers[i - 1] * 10;
    return powers;
}();

/// The powers of ten that 128 bits hold.
inline constexpr auto powersOf10S = [] {
    std::array<UInt128, 39> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i) powers[i] = powers[i - 1] * 10;
    return powers;
}();

constexpr UInt128 powerOf10(int exponent) noexcept {
    return powersOf10S[static_cast<std::size_t>(exponent)];
}

constexpr std::uint64_t smallPowerOf10(int exponent) noexcept {
    return smallPowersOf10S[static_cast<std::size_t>(exponent)];
}

/// The powers of ten from 10^38 that 192 bits hold.
inline constexpr auto widePowersOf10S = [] {
    std::array<UInt192, 20> powers{};
    for (std::size_t i = 0; i < powers.size(); ++i) {
        powers[i] = product(powersOf10S[28], powersOf10S[10 + i]);
    }
    return powers;
}();

/// The length of a number in bits, 1 for 0.
constexpr int bitLength(std::uint64_t number) noexcept { return 64 - std::countl_zero(number | 1); }
constexpr int bitLength(UInt128 number) noexcept {
    const std::uint64_t high = highWord(number);
    return high != 0 ? 64 + bitLength(high) : bitLength(lowWord(number));
}

/// The estimate from which digits are counted: 1233 / 4096 is close enough to log10(2) for 192
/// bits, and the number of digits is the estimate or one more.
constexpr int leastDigitCount(int bits) noexcept { return bits * 1233 >> 12; }

/// Decimal digits of a number; 0 for 0.
inline int digitCount(UInt128 number) noexcept {
    const int least = leastDigitCount(bitLength(number));
    return least + (number >= powerOf10(least) ? 1 : 0);
}

inline int digitCount(const UInt192& number) noexcept {
    if (isLess(number, widePowersOf10S[0])) return digitCount(number.low);
    const int least = leastDigitCount(number.high != 0 ? 128 + bitLength(number.high) : 128);
    return least + (isLess(number, widePowersOf10S[static_cast<std::size_t>(least - 38)]) ? 0 : 1);
}

/// For each power of ten from 10^1 to 10^38, the constants for dividing by it: the power itself,
/// the greatest `shift` with 2^shift below it, and 2^(128 + shift) divided by it, rounded down.
struct PowerReciprocal {
    UInt128 power;
    UInt128 reciprocal;
    int shift;
};

inline constexpr auto powerReciprocalsS = [] {
    std::array<PowerReciprocal, powersOf10S.size()> table{};
    for (std::size_t i = 1; i < table.size(); ++i) {
        const UInt128 power = powersOf10S[i];
        int shift = 0;
        while (UInt128{2} << shift < power) ++shift;
        UInt128 reciprocal = 0;
        UInt128 rest = UInt128{1} << shift;
        for (int bit = 0; bit < 128; ++bit) {
            reciprocal <<= 1;
            rest <<= 1;
            if (rest >= power) {
                rest -= power;
                reciprocal |= 1;
            }
        }
        table[i] = {power, reciprocal, shift};
    }
    return table;
}();

struct WideQuotientRemainder {
    UInt128 quotient;
    UInt128 remainder;
};

/// Divides by 10^`exponent`, 1 to 38, through multiplication by the reciprocal.
inline WideQuotientRemainder divideByPowerOf10(UInt128 number, int exponent) noexcept {
    const PowerReciprocal& entry = powerReciprocalsS[static_cast<std::size_t>(exponent)];
    // As the reciprocal is rounded down, this is the quotient or one less.
    UInt128 quotient = productHigh(number, entry.reciprocal) >> entry.shift;
    UInt128 remainder = number - quotient * entry.power;
    const bool isShort = remainder >= entry.power;
    quotient += isShort ? 1 : 0;
    remainder -= isShort ? entry.power : 0;
    return {quotient, remainder};
}

/// The same for 192 bits, where the quotient must fit 128 and `exponent` be at most 37.
inline WideQuotientRemainder divideByPowerOf10(const UInt192& number, int exponent) noexcept {
    if (number.high == 0) return divideByPowerOf10(number.low, exponent);
    const PowerReciprocal& entry = powerReciprocalsS[static_cast<std::size_t>(exponent)];
    // The quotient of the upper 128 bits is at most two short. The remainder has no more bits than
    // the lower words hold, wherever those wrap.
    const int dropped = bitLength(number.high);
    const UInt128 upper =
        static_cast<UInt128>(number.high) << (128 - dropped) | number.low >> dropped;
    UInt128 quotient = productHigh(upper, entry.reciprocal) >> (entry.shift - dropped);
    UInt128 remainder = number.low - quotient * entry.power;
    while (remainder >= entry.power) {
        remainder -= entry.power;
        ++quotient;
    }
    return {quotient, remainder};
}

/// Divides the 192 bits `number` by any number; the quotient must fit 128 bits.
inline WideQuotientRemainder divideWide(const UInt192& number, UInt128 divisor) noexcept {
    if (highWord(divisor) == 0) {
        const auto upper = divideWords(number.high, highWord(number.low), lowWord(divisor));
        const auto lower = divideWords(upper.remainder, lowWord(number.low), lowWord(divisor));
        return {joinWords(upper.quotient, lower.quotient), lower.remainder};
    }
    // Long division in words (Knuth's algorithm D): with the divisor's top bit set, a word of the
    // quotient guessed from the divisor's upper word is at most two too great.
    const int shift = std::countl_zero(highWord(divisor));
    divisor <<= shift;
    UInt128 remainder = static_cast<UInt128>(number.high) << shift;
    if (shift != 0) remainder |= number.low >> (128 - shift);
    const UInt128 low = number.low << shift;
    const auto nextWord = [&remainder, divisor](std::uint64_t word) {
        const std::uint64_t top = highWord(divisor);
        std::uint64_t quotient = ~std::uint64_t{0};
        if (highWord(remainder) < top) [[likely]] {
            quotient = divideWords(highWord(remainder), lowWord(remainder), top).quotient;
        }
        const UInt192 current{joinWords(lowWord(remainder), word), highWord(remainder)};
        UInt192 multiple = product(divisor, quotient);
        while (isLess(current, multiple)) {
            --quotient;
            multiple = difference(multiple, {divisor});
        }
        remainder = difference(current, multiple).low;
        return quotient;
    };
    const std::uint64_t upper = nextWord(highWord(low));
    const std::uint64_t lower = nextWord(lowWord(low));
    return {joinWords(upper, lower), remainder >> shift};
}

}  // namespace FND
