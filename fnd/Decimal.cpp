#include "fnd/Decimal.h"

#include <cmath>
#include <type_traits>
#include <utility>

#include "fnd/number/DecimalParts.h"

bool FND_MAX28DIGIT_DECIMAL_SUPPORT = true;

namespace FND {

namespace {

/// Whether dropping `remainder` of `unit` from a number rounds it up, half to even. `more`: the
/// remainder is really a little greater. Without branches, as these would be unpredictable.
template <class Number>
constexpr bool roundsUp(Number remainder, Number unit, bool isOdd, bool more = false) noexcept {
    const Number rest = unit - remainder;
    return (remainder > rest) | ((remainder == rest) & (isOdd | more));
}

}  // namespace

Decimal Decimal::Parts::fit(bool negative, UInt128 magnitude, int scale, bool more,
                            std::uint64_t upper) noexcept {
    const int precision = decimalPrecision();
    if (upper == 0 && magnitude < powerOf10(precision) && scale <= maxScaleCM) {
        return join(negative, magnitude, scale);
    }
    UInt192 number{magnitude, upper};
    const int digits = digitCount(number);
    int drop = std::max(digits - precision, scale - maxScaleCM);
    if (drop > scale) return invalid();
    if (drop > digits) return {0, maxScaleCM};
    scale -= drop;
    if (drop > 37) [[unlikely]] {
        constexpr int first = 20;
        const auto part = divideByPowerOf10(number, first);
        number = {part.quotient};
        more |= part.remainder != 0;
        drop -= first;
    }
    const auto [kept, remainder] = divideByPowerOf10(number, drop);
    const bool up = roundsUp(remainder, powerOf10(drop), (kept & 1) != 0, more);
    return joinRounded(negative, kept, scale, up, precision);
}

Decimal Decimal::add(Decimal left, Decimal right) noexcept {
    // Bring the operand with fewer digits after the point to the scale of the other.
    const bool leftIsFiner = left.scale() > right.scale();
    const Decimal fine = leftIsFiner ? left : right;
    const Decimal coarse = leftIsFiner ? right : left;
    const int shift = fine.scale() - coarse.scale();
    if (areSmall(left, right) && shift <= 18) [[likely]] {
        const auto power = static_cast<std::int64_t>(smallPowerOf10(shift));
        std::int64_t sum = 0;
        if (!__builtin_mul_overflow(coarse.low_, power, &sum) &&
            !__builtin_add_overflow(sum, fine.low_, &sum) && isSmallCoefficient(sum)) [[likely]] {
            return {sum, fine.high_};
        }
    }
    if (!left.isValid() || !right.isValid()) return invalid();

    // Signs are unpredictable: negate, add and take the magnitude again without a branch.
    const Parts finer(fine);
    const Parts coarser(coarse);
    const bool signsDiffer = finer.negative != coarser.negative;
    if (coarser.magnitude < powerOf10(38 - shift)) [[likely]] {
        const UInt128 sum =
            finer.magnitude + negated(coarser.magnitude * powerOf10(shift), signsDiffer);
        const bool changesSign = signsDiffer & isNegative(sum);
        return Parts::fit(finer.negative != changesSign, negated(sum, changesSign), finer.scale);
    }
    const UInt192 total =
        sum({finer.magnitude}, negated(product(coarser.magnitude, powerOf10(shift)), signsDiffer));
    const bool changesSign = signsDiffer & isNegative(total);
    const UInt192 magnitude = negated(total, changesSign);
    return Parts::fit(finer.negative != changesSign, magnitude.low, finer.scale, false,
                      magnitude.high);
}

Decimal Decimal::multiply(Decimal left, Decimal right) noexcept {
    if (!left.isValid() || !right.isValid()) return invalid();
    const Parts first(left);
    const Parts second(right);
    const UInt192 exact = product(first.magnitude, second.magnitude);
    return Parts::fit(first.negative != second.negative, exact.low, first.scale + second.scale,
                      false, exact.high);
}

namespace {

/// Drops up to `most` trailing zeros of a number other than 0; returns how many.
template <class Number>
int dropZeros(Number& number, int most) noexcept {
    int dropped = 0;
    const auto drop = [&]<int zeros>(std::integral_constant<int, zeros>) {
        // A multiple of 10^n is one of 2^n: the cheap test goes first.
        constexpr std::uint64_t power = smallPowersOf10S[zeros];
        constexpr std::uint64_t bits = (std::uint64_t{1} << zeros) - 1;
        if ((static_cast<std::uint64_t>(number) & bits) == 0 && dropped + zeros <= most &&
            number % power == 0) {
            number /= power;
            dropped += zeros;
        }
    };
    if ((number & 1) != 0) return 0;
    drop(std::integral_constant<int, 16>{});
    drop(std::integral_constant<int, 8>{});
    drop(std::integral_constant<int, 4>{});
    drop(std::integral_constant<int, 2>{});
    drop(std::integral_constant<int, 1>{});
    return dropped;
}

}  // namespace

/// The quotient of `magnitude` and `scale`, complete (`isExact`) or with all the digits that fit,
/// to be increased by one if `up`. Trailing zeros are removed down to scale `ideal`.
[[gnu::always_inline]] inline Decimal Decimal::Parts::fromQuotient(bool negative, UInt128 magnitude,
                                                                   int scale, int ideal,
                                                                   bool isExact, bool up) noexcept {
    const int precision = decimalPrecision();
    const UInt128 limit = powerOf10(precision);
    if (scale < 0) [[unlikely]] {
        // A negative scale stands for zeros, which have to fit too.
        if (digitCount(magnitude) - scale > precision) return invalid();
        return join(negative, magnitude * powerOf10(-scale), 0);
    }
    // Operands made in the other width can leave more digits than there should be.
    if (magnitude >= limit) [[unlikely]]
        return fit(negative, magnitude, scale, !isExact);
    magnitude += up ? 1 : 0;
    if (magnitude == 0) [[unlikely]]
        return {0, static_cast<std::uint64_t>(ideal)};
    if (magnitude == limit && scale == ideal) [[unlikely]] {
        return joinRounded(negative, magnitude, scale, false, precision);
    }
    // 2^64 is 1 modulo 5, so the sum of the words shows whether the last digit is 0.
    const std::uint64_t modulo5 = (highWord(magnitude) % 5 + lowWord(magnitude) % 5) % 5;
    if ((modulo5 | (lowWord(magnitude) & 1)) == 0 && scale > ideal) [[unlikely]] {
        scale -= dropZeros(magnitude, scale - ideal);
    }
    return join(negative, magnitude, scale);
}

/// Numbers of at most 18 digits, the divisor not 0.
Decimal Decimal::divideSmall(Decimal left, Decimal right) noexcept {
    const bool negative = (left.low_ ^ right.low_) < 0;
    const auto dividend = static_cast<std::uint64_t>(left.low_ < 0 ? -left.low_ : left.low_);
    const auto divisor = static_cast<std::uint64_t>(right.low_ < 0 ? -right.low_ : right.low_);
    const int precision = decimalPrecision();
    int scale = left.scale() - right.scale();
    const int ideal = std::max(scale, 0);

    // One machine division gives as many digits as a word holds, or one or two less. The lengths in
    // bits show closely enough how far the dividend can be shifted to the left.
    const int room = (precision > 18 ? 63 : 58) + bitLength(divisor) - bitLength(dividend);
    const int shift = std::min(leastDigitCount(std::max(room, 0)), maxScaleCM - scale);
    const UInt128 number = dividend * powerOf10(shift);
    auto [digits, remainder] = divideWords(highWord(number), lowWord(number), divisor);
    scale += shift;
    if (remainder == 0) {
        if (digits != 0) scale -= dropZeros(digits, scale - ideal);
        return Parts::fromQuotient(negative, digits, scale, ideal, true, false);
    }
    // A second one gives the others.
    const int length = 17 + (digits >= smallPowersOf10S[17] ? 1 : 0) +
                       (digits >= smallPowersOf10S[18] ? 1 : 0) +
                       (digits >= smallPowersOf10S[19] ? 1 : 0);
    const int count = std::min(precision - length, maxScaleCM - scale);
    UInt128 magnitude = digits;
    if (count > 0) [[likely]] {
        const UInt128 rest = static_cast<UInt128>(remainder) * smallPowerOf10(count);
        const auto second = divideWords(highWord(rest), lowWord(rest), divisor);
        remainder = second.remainder;
        magnitude = static_cast<UInt128>(digits) * smallPowerOf10(count) + second.quotient;
        scale += count;
    }
    const bool up = roundsUp(remainder, divisor, (magnitude & 1) != 0);
    return Parts::fromQuotient(negative, magnitude, scale, ideal, remainder == 0, up);
}

Decimal Decimal::divide(Decimal left, Decimal right) noexcept {
    if (!left.isValid() || !right.isValid() || right.isZero()) return invalid();
    const Parts dividend(left);
    const Parts divisor(right);
    int scale = dividend.scale - divisor.scale;
    const int ideal = std::max(scale, 0);

    // The number of digits of the present quotient before the point: the difference in length, or
    // one more when the first digits of the dividend are not less than those of the divisor.
    const int lengthen = digitCount(dividend.magnitude) - digitCount(divisor.magnitude);
    const bool isLonger = dividend.magnitude * powerOf10(std::max(-lengthen, 0)) >=
                          divisor.magnitude * powerOf10(std::max(lengthen, 0));
    const int digits = lengthen + (isLonger ? 1 : 0);
    const int shift = std::max(0, std::min(decimalPrecision() - digits, maxScaleCM - scale));
    scale += shift;
    // The shifted dividend has at most 56 digits, but the shift alone can have more than 38.
    const int first = std::max(shift - maxScaleCM, 0);
    const auto [magnitude, remainder] =
        divideWide(product(dividend.magnitude * powerOf10(first), powerOf10(shift - first)),
                   divisor.magnitude);
    const bool up = roundsUp(remainder, divisor.magnitude, (magnitude & 1) != 0);
    return Parts::fromQuotient(dividend.negative != divisor.negative, magnitude, scale, ideal,
                               remainder == 0, up);
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
    return leftSign * order(left.magnitude * powerOf10(scale - left.scale),
                            right.magnitude * powerOf10(scale - right.scale));
}

Decimal Decimal::round(int places, RoundingMode mode) const noexcept {
    places = clampPlaces(places);
    if (places >= scale()) return *this;
    const Parts number(*this);
    const int drop = number.scale - places;
    const UInt128 unit = powerOf10(drop);
    const auto split = divideByPowerOf10(number.magnitude, drop);
    const auto roundsUpBy = [&] {
        switch (mode) {
            case RoundingMode::Up:
                return split.remainder != 0;
            case RoundingMode::Down:
                return false;
            case RoundingMode::Bankers:
                return roundsUp(split.remainder, unit, (split.quotient & 1) != 0);
            case RoundingMode::Plain:
                break;
        }
        return roundsUp(split.remainder, unit, true);
    };
    return Parts::join(number.negative, split.quotient + (roundsUpBy() ? 1 : 0), places);
}

Decimal Decimal::sqrt() const noexcept {
    // The root of a negative number and that of not-a-number are not finite.
    return fromDouble(std::sqrt(toDouble()));
}

}  // namespace FND
