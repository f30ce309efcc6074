#include "fnd/Decimal.h"

#include <cmath>
#include <type_traits>
#include <utility>

#include "fnd/DecimalParts.h"

bool FND_MAX28DIGIT_DECIMAL_SUPPORT = true;

namespace FND {

namespace {

/// Whether dropping `remainder` of `unit` from a number rounds it up, half to even. `more`: the
/// remainder is a little greater than said. Without branches, as they would be taken at random.
constexpr bool roundsUp(UInt128 remainder, UInt128 unit, bool isOdd, bool more = false) noexcept {
    const UInt128 rest = unit - remainder;
    return (remainder > rest) | ((remainder == rest) & (isOdd | more));
}

}  // namespace

Decimal Decimal::Parts::joinRounded(bool negative, UInt128 magnitude, int scale, bool up,
                                    int precision) noexcept {
    magnitude += up ? 1 : 0;
    if (magnitude == powerOf10(precision)) [[unlikely]] {
        if (scale == 0) return invalid();
        magnitude /= 10;
        --scale;
    }
    return join(negative, magnitude, scale);
}

Decimal Decimal::Parts::fit(bool negative, UInt192 magnitude, int scale, bool more) noexcept {
    const int precision = decimalPrecision();
    const int digits = digitCount(magnitude);
    int drop = std::max(digits - precision, scale - maxScaleCM);
    if (drop <= 0) return join(negative, magnitude.low, scale);
    if (drop > scale) return invalid();
    if (drop > digits) return {0, maxScaleCM};
    scale -= drop;
    if (drop > 37) [[unlikely]] {
        constexpr int first = 20;
        const auto part = divideByPowerOf10(magnitude, first);
        magnitude = {part.quotient};
        more |= part.remainder != 0;
        drop -= first;
    }
    const auto [kept, remainder] = divideByPowerOf10(magnitude, drop);
    const bool up = roundsUp(remainder, powerOf10(drop), (kept & 1) != 0, more);
    return joinRounded(negative, kept, scale, up, precision);
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
    // Signs differ at random: negate, add and take the magnitude again without a branch.
    const bool signsDiffer = finer.negative != coarser.negative;
    UInt192 total = sum(
        {finer.magnitude},
        negated(product(coarser.magnitude, powerOf10(finer.scale - coarser.scale)), signsDiffer));
    const bool changesSign = signsDiffer & isNegative(total);
    total = negated(total, changesSign);
    return Parts::fit(finer.negative != changesSign, total, finer.scale);
}

Decimal Decimal::multiply(Decimal left, Decimal right) noexcept {
    if (!left.isValid() || !right.isValid()) return invalid();
    const Parts first(left);
    const Parts second(right);
    return Parts::fit(first.negative != second.negative, product(first.magnitude, second.magnitude),
                      first.scale + second.scale);
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

struct Quotient {
    UInt128 magnitude;
    UInt128 remainder;
    int scale;
};

/// The digits of a quotient of two numbers of at most 18 digits, neither 0, whose scale as it
/// stands is `scale`: until it is exact or has all digits that fit. Trailing zeros beyond scale
/// `ideal` are left away when it is exact.
Quotient divideSmall(std::uint64_t dividend, std::uint64_t divisor, int scale, int ideal,
                     int precision) noexcept {
    // One machine division gives as many digits as a word holds, or one less.
    const int shift =
        std::min(std::min(18, precision - 1) - digitCount(dividend) + digitCount(divisor),
                 Decimal::maxScaleCM - scale);
    const UInt128 number = dividend * powerOf10(shift);
    auto [digits, remainder] = divideWords(highWord(number), lowWord(number), divisor);
    scale += shift;
    if (remainder == 0) {
        scale -= dropZeros(digits, scale - ideal);
        return {digits, 0, scale};
    }
    // The second gives the others.
    int count = std::min(precision - digitCount(digits), Decimal::maxScaleCM - scale);
    if (count <= 0) return {digits, remainder, scale};
    const UInt128 rest =
        static_cast<UInt128>(remainder) * smallPowersOf10S[static_cast<std::size_t>(count)];
    auto second = divideWords(highWord(rest), lowWord(rest), divisor);
    if (second.remainder == 0) {
        count -= dropZeros(second.quotient, std::min(count, scale + count - ideal));
    }
    return {static_cast<UInt128>(digits) * smallPowersOf10S[static_cast<std::size_t>(count)] +
                second.quotient,
            second.remainder, scale + count};
}

/// The same for numbers of up to 28 digits, zeros not left away. The quotient has too many digits
/// when even its integer part does.
Quotient divideWide(UInt128 dividend, UInt128 divisor, int scale, int precision) noexcept {
    // How many digits the quotient has before the point: the difference in length, or one more when
    // the first digits of the dividend are not less than those of the divisor.
    const int lengthen = digitCount(dividend) - digitCount(divisor);
    const bool isLonger =
        dividend * powerOf10(std::max(-lengthen, 0)) >= divisor * powerOf10(std::max(lengthen, 0));
    const int digits = lengthen + (isLonger ? 1 : 0);
    const int shift = std::max(0, std::min(precision - digits, Decimal::maxScaleCM - scale));
    // The shifted dividend has at most 56 digits, but the shift alone can have more than 38.
    const int first = std::max(shift - 28, 0);
    const auto [quotient, remainder] =
        divide(product(dividend * powerOf10(first), powerOf10(shift - first)), divisor);
    return {quotient, remainder, scale + shift};
}

}  // namespace

Decimal Decimal::divide(Decimal left, Decimal right) noexcept {
    if (!left.isValid() || !right.isValid() || right.isZero()) return invalid();
    const Parts dividend(left);
    const Parts divisor(right);
    const bool negative = dividend.negative != divisor.negative;
    const int precision = decimalPrecision();
    const int difference = dividend.scale - divisor.scale;
    const int ideal = std::max(difference, 0);
    if (dividend.magnitude == 0) return {0, static_cast<std::uint64_t>(ideal)};

    Quotient quotient{};
    if (areSmall(left, right)) [[likely]] {
        quotient = divideSmall(lowWord(dividend.magnitude), lowWord(divisor.magnitude), difference,
                               ideal, precision);
    } else {
        quotient = divideWide(dividend.magnitude, divisor.magnitude, difference, precision);
        if (quotient.remainder == 0) {
            quotient.scale -= dropZeros(quotient.magnitude, quotient.scale - ideal);
        }
    }
    auto [magnitude, remainder, scale] = quotient;
    if (scale < 0) [[unlikely]] {
        if (remainder != 0 || digitCount(magnitude) - scale > precision) return invalid();
        return Parts::join(negative, magnitude * powerOf10(-scale), 0);
    }
    // Operands made in the other width can leave more digits than there should be.
    const UInt128 limit = powerOf10(precision);
    if (magnitude >= limit) [[unlikely]] {
        return Parts::fit(negative, {magnitude}, scale, remainder != 0);
    }
    if (remainder == 0) return Parts::join(negative, magnitude, scale);

    magnitude += roundsUp(remainder, divisor.magnitude, (magnitude & 1) != 0) ? 1 : 0;
    if (magnitude == 0) return {0, static_cast<std::uint64_t>(ideal)};
    if (magnitude == limit && scale == ideal) [[unlikely]] {
        return Parts::joinRounded(negative, magnitude, scale, false, precision);
    }
    // 2^64 is 1 modulo 5, so the sum of the words tells whether the last digit is 0.
    const std::uint64_t modulo5 = (highWord(magnitude) % 5 + lowWord(magnitude) % 5) % 5;
    if ((modulo5 | (lowWord(magnitude) & 1)) == 0) {
        scale -= dropZeros(magnitude, scale - ideal);
    }
    return Parts::join(negative, magnitude, scale);
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
