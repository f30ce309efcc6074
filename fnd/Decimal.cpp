#include "fnd/Decimal.h"

#include <cmath>
#include <utility>

#include "fnd/DecimalParts.h"

bool FND_MAX28DIGIT_DECIMAL_SUPPORT = true;

namespace FND {

namespace {

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
    const UInt128 number = static_cast<UInt128>(high) << 64 | low;
    return {static_cast<std::uint64_t>(number / divisor),
            static_cast<std::uint64_t>(number % divisor)};
#endif
}

/// The quotient of any 128-bit number; `remainder` receives what is left.
inline UInt128 divide(UInt128 number, std::uint64_t divisor, std::uint64_t& remainder) noexcept {
    const auto high = static_cast<std::uint64_t>(number >> 64);
    const auto low = static_cast<std::uint64_t>(number);
    if (high == 0) {
        remainder = low % divisor;
        return low / divisor;
    }
    const auto lower = divideWords(high % divisor, low, divisor);
    remainder = lower.remainder;
    return static_cast<UInt128>(high / divisor) << 64 | lower.quotient;
}

constexpr bool isLess(const UInt192& left, const UInt192& right) noexcept {
    return left.high != right.high ? left.high < right.high : left.low < right.low;
}

constexpr UInt192 multiplyFull(UInt128 left, UInt128 right) noexcept {
    const UInt128 left0 = static_cast<std::uint64_t>(left);
    const UInt128 left1 = left >> 64;
    const UInt128 right0 = static_cast<std::uint64_t>(right);
    const UInt128 right1 = right >> 64;
    const UInt128 bottom = left0 * right0;
    // Decimals have less than 94 bits, so the two cross products and the carry fit.
    const UInt128 middle = left0 * right1 + left1 * right0 + (bottom >> 64);
    return {middle << 64 | static_cast<std::uint64_t>(bottom),
            static_cast<std::uint64_t>(middle >> 64) + static_cast<std::uint64_t>(left1 * right1)};
}

constexpr UInt192 sum(const UInt192& left, const UInt192& right) noexcept {
    const UInt128 low = left.low + right.low;
    return {low, left.high + right.high + (low < left.low ? 1 : 0)};
}

/// `left` - `right`, which must not be greater.
constexpr UInt192 difference(const UInt192& left, const UInt192& right) noexcept {
    return {left.low - right.low, left.high - right.high - (left.low < right.low ? 1 : 0)};
}

/// Divides `number` in place by a divisor of 64 bits and returns the remainder.
inline std::uint64_t divideBy(UInt192& number, std::uint64_t divisor) noexcept {
    std::uint64_t remainder = 0;
    if (number.high == 0) {
        number.low = divide(number.low, divisor, remainder);
        return remainder;
    }
    const std::uint64_t high = number.high / divisor;
    const auto middle =
        divideWords(number.high % divisor, static_cast<std::uint64_t>(number.low >> 64), divisor);
    const auto low = divideWords(middle.remainder, static_cast<std::uint64_t>(number.low), divisor);
    number = {static_cast<UInt128>(middle.quotient) << 64 | low.quotient, high};
    return low.remainder;
}

/// The powers of ten from 10^38, up to the greatest sum or product of two decimals.
constexpr auto widePowersOf10S = [] {
    std::array<UInt192, 20> powers{};
    for (std::size_t i = 0; i < powers.size(); ++i) {
        powers[i] = multiplyFull(powersOf10S[28], powersOf10S[10 + i]);
    }
    return powers;
}();

int wideDigitCount(const UInt192& number) noexcept {
    if (isLess(number, widePowersOf10S[0])) return digitCount(number.low);
    const auto* above =
        std::upper_bound(widePowersOf10S.begin(), widePowersOf10S.end(), number, isLess);
    return 38 + static_cast<int>(above - widePowersOf10S.begin());
}

/// Whether dropping `remainder` of `unit` from a number rounds it up, half to even. `more`: the
/// remainder is a little greater than said.
constexpr bool roundsUp(UInt128 remainder, UInt128 unit, bool isOdd, bool more = false) noexcept {
    const UInt128 rest = unit - remainder;
    return remainder > rest || (remainder == rest && (isOdd || more));
}

}  // namespace

Decimal Decimal::Parts::joinRounded(bool negative, UInt128 magnitude, int scale, bool up,
                                    int precision) noexcept {
    if (up && ++magnitude == powersOf10S[static_cast<std::size_t>(precision)]) {
        if (scale == 0) return invalid();
        magnitude /= 10;
        --scale;
    }
    return join(negative, magnitude, scale);
}

Decimal Decimal::Parts::fit(bool negative, UInt192 magnitude, int scale, bool more) noexcept {
    const int precision = decimalPrecision();
    const int digits = wideDigitCount(magnitude);
    int drop = std::max(digits - precision, scale - maxScaleCM);
    if (drop <= 0) return join(negative, magnitude.low, scale);
    if (drop > scale) return invalid();
    if (drop > digits) return {0, maxScaleCM};
    scale -= drop;
    for (; drop > 19; drop -= 19) {
        if (divideBy(magnitude, smallPowersOf10S[19]) != 0) more = true;
    }
    const std::uint64_t unit = smallPowersOf10S[static_cast<std::size_t>(drop)];
    const std::uint64_t remainder = divideBy(magnitude, unit);
    const bool up = roundsUp(remainder, unit, (magnitude.low & 1) != 0, more);
    return joinRounded(negative, magnitude.low, scale, up, precision);
}

Decimal Decimal::add(Decimal left, Decimal right) noexcept {
    if (areSmall(left, right)) [[likely]] {
        // Bring the operand with fewer digits after the point to the scale of the other.
        const bool leftIsFiner = left.high_ > right.high_;
        const Decimal& finer = leftIsFiner ? left : right;
        const Decimal& coarser = leftIsFiner ? right : left;
        const std::uint64_t shift = finer.high_ - coarser.high_;
        std::int64_t sum = 0;
        if (shift <= 18 &&
            !__builtin_mul_overflow(coarser.low_,
                                    static_cast<std::int64_t>(smallPowersOf10S[shift]), &sum) &&
            !__builtin_add_overflow(sum, finer.low_, &sum) && isSmallCoefficient(sum)) [[likely]] {
            return {sum, finer.high_};
        }
    }
    if (!left.isValid() || !right.isValid()) return invalid();

    Parts finer(left);
    Parts coarser(right);
    if (finer.scale < coarser.scale) std::swap(finer, coarser);
    const UInt192 first{finer.magnitude};
    const UInt192 second = multiplyFull(
        coarser.magnitude, powersOf10S[static_cast<std::size_t>(finer.scale - coarser.scale)]);
    if (finer.negative == coarser.negative) {
        return Parts::fit(finer.negative, sum(first, second), finer.scale);
    }
    if (isLess(first, second)) {
        return Parts::fit(coarser.negative, difference(second, first), finer.scale);
    }
    return Parts::fit(finer.negative, difference(first, second), finer.scale);
}

Decimal Decimal::multiply(Decimal left, Decimal right) noexcept {
    if (!left.isValid() || !right.isValid()) return invalid();
    const Parts first(left);
    const Parts second(right);
    return Parts::fit(first.negative != second.negative,
                      multiplyFull(first.magnitude, second.magnitude), first.scale + second.scale);
}

namespace {

/// Divisors of 64 bits: 18 digits of the quotient at a time by one machine division.
struct NarrowDivisor {
    static constexpr int chunkCM = 18;
    std::uint64_t value;

    std::uint64_t nextDigits(UInt128& remainder, int count) const noexcept {
        const UInt128 number = remainder * smallPowersOf10S[static_cast<std::size_t>(count)];
        const auto result = divideWords(static_cast<std::uint64_t>(number >> 64),
                                        static_cast<std::uint64_t>(number), value);
        remainder = result.remainder;
        return result.quotient;
    }
};

/// Greater divisors: 10 digits at a time, as remainder and digits together fit 128 bits.
struct WideDivisor {
    static constexpr int chunkCM = 10;
    UInt128 value;

    std::uint64_t nextDigits(UInt128& remainder, int count) const noexcept {
        const UInt128 number = remainder * smallPowersOf10S[static_cast<std::size_t>(count)];
        const UInt128 quotient = number / value;
        remainder = number - quotient * value;
        return static_cast<std::uint64_t>(quotient);
    }
};

struct Quotient {
    UInt128 magnitude;
    UInt128 remainder;
    int scale;
};

/// Drops up to `most` trailing zeros of a number of at most 18 digits, not 0; returns how many.
int dropZeros(std::uint64_t& number, int most) noexcept {
    int dropped = 0;
    const auto drop = [&]<int zeros>(std::integral_constant<int, zeros>) {
        // A multiple of 10^n is one of 2^n: the cheap test goes first.
        constexpr std::uint64_t power = smallPowersOf10S[zeros];
        if ((number & ((1U << zeros) - 1)) == 0 && dropped + zeros <= most && number % power == 0) {
            number /= power;
            dropped += zeros;
        }
    };
    drop(std::integral_constant<int, 8>{});
    drop(std::integral_constant<int, 4>{});
    drop(std::integral_constant<int, 4>{});
    drop(std::integral_constant<int, 2>{});
    drop(std::integral_constant<int, 1>{});
    return dropped;
}

/// Continues a division that has come to `quotient` (whole units, with a remainder) until it is
/// exact or has all digits that fit. Trailing zeros beyond scale `ideal` are left away when exact.
template <class Divisor>
void findDigits(Quotient& quotient, const Divisor& divisor, int ideal, int precision) noexcept {
    while (quotient.remainder != 0) {
        int count = std::min(Divisor::chunkCM, Decimal::maxScaleCM - quotient.scale);
        if (quotient.magnitude != 0) {
            count = std::min(count, precision - digitCount(quotient.magnitude));
        }
        if (count <= 0) return;
        std::uint64_t digits = divisor.nextDigits(quotient.remainder, count);
        if (quotient.remainder == 0) {
            const int spare = std::min(count, quotient.scale + count - ideal);
            count -= dropZeros(digits, spare);
        }
        quotient.magnitude =
            quotient.magnitude * smallPowersOf10S[static_cast<std::size_t>(count)] + digits;
        quotient.scale += count;
    }
}

}  // namespace

Decimal Decimal::divide(Decimal left, Decimal right) noexcept {
    if (!left.isValid() || !right.isValid() || right.isZero()) return invalid();
    const Parts dividend(left);
    const Parts divisor(right);
    const bool negative = dividend.negative != divisor.negative;
    const int precision = decimalPrecision();

    Quotient quotient{0, 0, dividend.scale - divisor.scale};
    const int ideal = std::max(quotient.scale, 0);
    if (divisor.magnitude >> 64 == 0) {
        const NarrowDivisor narrow{static_cast<std::uint64_t>(divisor.magnitude)};
        std::uint64_t remainder = 0;
        quotient.magnitude = FND::divide(dividend.magnitude, narrow.value, remainder);
        quotient.remainder = remainder;
        findDigits(quotient, narrow, ideal, precision);
    } else {
        quotient.magnitude = dividend.magnitude / divisor.magnitude;
        quotient.remainder = dividend.magnitude % divisor.magnitude;
        findDigits(quotient, WideDivisor{divisor.magnitude}, ideal, precision);
    }
    UInt128 magnitude = quotient.magnitude;
    int scale = quotient.scale;

    const bool isExact = quotient.remainder == 0;
    const int digits = digitCount(magnitude);
    if (scale < 0) {
        if (magnitude == 0) return {0, 0};
        if (!isExact || digits - scale > precision) return invalid();
        return Parts::join(negative, magnitude * powersOf10S[static_cast<std::size_t>(-scale)], 0);
    }
    // Operands made in the other width can leave more digits than there should be.
    if (digits > precision) return Parts::fit(negative, {magnitude}, scale, !isExact);
    if (isExact) return Parts::join(negative, magnitude, scale);

    const UInt128 limit = powersOf10S[static_cast<std::size_t>(precision)];
    if (roundsUp(quotient.remainder, divisor.magnitude, (magnitude & 1) != 0)) ++magnitude;
    while ((magnitude & 1) == 0 && (scale > ideal || (magnitude == limit && scale > 0))) {
        std::uint64_t lastDigit = 0;
        const UInt128 shorter = FND::divide(magnitude, 10, lastDigit);
        if (lastDigit != 0) break;
        magnitude = shorter;
        --scale;
    }
    return magnitude == limit ? invalid() : Parts::join(negative, magnitude, scale);
}

int Decimal::compare(Decimal other) const noexcept {
    const auto order = [](auto left, auto right) {
        return left < right ? -1 : left > right ? 1 : 0;
    };
    if (areSmall(*this, other)) [[likely]] {
        const bool thisIsFiner = high_ > other.high_;
        const std::uint64_t shift = thisIsFiner ? high_ - other.high_ : other.high_ - high_;
        std::int64_t scaled = thisIsFiner ? other.low_ : low_;
        if (shift <= 18 && !__builtin_mul_overflow(
                               scaled, static_cast<std::int64_t>(smallPowersOf10S[shift]), &scaled))
            [[likely]] {
            return thisIsFiner ? order(low_, scaled) : order(scaled, other.low_);
        }
    }
    if (!isValid() || !other.isValid()) return order(isValid(), other.isValid());

    const Parts left(*this);
    const Parts right(other);
    const auto sign = [](const Parts& number) {
        return number.magnitude == 0 ? 0 : number.negative ? -1 : 1;
    };
    const int leftSign = sign(left);
    if (const int bySign = order(leftSign, sign(right)); bySign != 0) return bySign;
    // With as many digits before the point, the numbers have at most 28 digits when aligned.
    const int byLength =
        order(digitCount(left.magnitude) - left.scale, digitCount(right.magnitude) - right.scale);
    if (byLength != 0) return byLength * leftSign;
    const int scale = std::max(left.scale, right.scale);
    return leftSign *
           order(left.magnitude * powersOf10S[static_cast<std::size_t>(scale - left.scale)],
                 right.magnitude * powersOf10S[static_cast<std::size_t>(scale - right.scale)]);
}

Decimal Decimal::round(int places, RoundingMode mode) const noexcept {
    places = clampPlaces(places);
    if (places >= scale()) return *this;
    const Parts number(*this);
    const auto drop = static_cast<std::size_t>(number.scale - places);
    UInt128 kept = 0;
    UInt128 unit = powersOf10S[drop];
    UInt128 remainder = number.magnitude;
    if (drop < smallPowersOf10S.size()) {
        std::uint64_t rest = 0;
        kept = FND::divide(number.magnitude, smallPowersOf10S[drop], rest);
        remainder = rest;
    } else if (number.magnitude >= unit) {
        kept = number.magnitude / unit;
        remainder = number.magnitude % unit;
    }
    const auto roundsUpBy = [&] {
        switch (mode) {
            case RoundingMode::Up:
                return remainder != 0;
            case RoundingMode::Down:
                return false;
            case RoundingMode::Bankers:
                return roundsUp(remainder, unit, (kept & 1) != 0);
            case RoundingMode::Plain:
                break;
        }
        return roundsUp(remainder, unit, true);
    };
    return Parts::join(number.negative, kept + (roundsUpBy() ? 1 : 0), places);
}

Decimal Decimal::sqrt() const noexcept {
    // The root of a negative number and that of not-a-number are not finite.
    return fromDouble(std::sqrt(toDouble()));
}

}  // namespace FND
