#pragma once

#include <compare>
#include <concepts>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include "fnd/Export.h"
#include "fnd/String.h"

/// Significant digits that results of decimal operations may have in this process: 28 when true
/// (the default), 18 when false. A host sets it before its first interpreter; it must not change
/// while another thread computes with decimals. Values made before a change stay as they are.
extern KESTREL_API bool FND_MAX28DIGIT_DECIMAL_SUPPORT;

namespace FND {

/// An exact decimal number: an integer coefficient of up to 28 digits over a power of ten, its
/// scale (0 to 28 digits after the point), or the one invalid value. 16 bytes, copied as bytes.
///
/// An operation gives the exact result when that fits the digits available (see
/// `FND_MAX28DIGIT_DECIMAL_SUPPORT`) and a scale of 28, otherwise the result rounded once, half to
/// even, to as many digits as fit. A result that is too large for that is invalid. Every operation
/// on an invalid operand is invalid. There is no negative zero. Trailing zeros are kept as by the
/// General Decimal Arithmetic but never make a difference in value: 1.0 equals 1.00.
///
/// Nothing here throws or allocates, except for an output string that has to grow. Threads may
/// share values that nobody writes.
class KESTREL_API Decimal {
public:
    /// What `round` does with the digits it drops: Plain rounds half away from zero, Up away from
    /// zero, Down toward zero, Bankers half to even.
    enum class RoundingMode { Plain, Up, Down, Bankers };

    /// The most digits after the point.
    static constexpr int maxScaleCM = 28;

    /// Zero.
    constexpr Decimal() noexcept = default;

    /// The exact value of `number`, scale 0, in both widths (a number of 19 digits is kept even
    /// when results of operations have 18).
    explicit constexpr Decimal(std::int64_t number) noexcept;

    /// Floating-point numbers go through `fromDouble`.
    template <std::floating_point Number>
    explicit Decimal(Number) = delete;

    /// The invalid value, also named `FND::INVALID_DECIMAL`.
    static constexpr Decimal invalid() noexcept { return {0, invalidCM}; }

    /// The number that `text` spells: blanks (the white space of the C locale) around an optional
    /// sign, digits and an optional "." with one digit or more after it; the digits before the "."
    /// may be missing. Any other text, even the empty one, is invalid, and so is a number too large
    /// for the digits available. Further digits are rounded half to even.
    static Decimal fromString(std::string_view text) noexcept;

    /// The decimal with the fewest digits to which `number` is the nearest double. Invalid when
    /// `number` is not finite or too large.
    static Decimal fromDouble(double number) noexcept;

    /// Reads hexadecimal text: like `fromString`, but with hexadecimal digits of either case before
    /// and after `separator`, and at least one before it. No prefix is allowed. The value is
    /// rounded half away from zero to `places` decimal places, limited to 0 to 28 and to the digits
    /// available. "-FF.8" with one place is -255.5.
    static Decimal fromHexString(std::string_view text, char separator, int places) noexcept;

    /// The nearest double; not a number for the invalid value.
    double toDouble() const noexcept;

    /// The value of `toDouble` truncated toward zero: beyond 2^53 not every integer survives. The
    /// nearest Long when out of range, 0 for the invalid value.
    std::int64_t toLong() const noexcept;

    constexpr bool isValid() const noexcept { return high_ != invalidCM; }
    constexpr bool isZero() const noexcept { return low_ == 0 && isSmall(); }

    /// Digits of this value after the point, including trailing zeros; 0 when invalid.
    constexpr int scale() const noexcept { return static_cast<int>(high_ & scaleMaskCM); }

    /// The absolute value.
    constexpr Decimal abs() const noexcept;

    /// This value rounded by `mode` to at most `places` digits after the point, limited to 0 to 28.
    /// A value with no more digits than that is returned unchanged.
    Decimal round(int places, RoundingMode mode) const noexcept;

    /// The square root in double precision, through `toDouble` and `fromDouble`. Invalid for
    /// negative numbers.
    Decimal sqrt() const noexcept;

    /// -1, 0 or 1 when this value is less than, equal to or greater than `other`. The invalid value
    /// equals itself and is less than every number.
    int compare(Decimal other) const noexcept;

    /// Replaces `out` by this number with exactly `places` digits after the "." (no "." for 0),
    /// rounded half away from zero; `places` is limited to 0 to 28. The memory of `out` is reused.
    /// The invalid value gives "INVALID".
    void format(String& out, int places) const;

    /// As `format`, in a new string.
    String toString(int places = 6) const;

    /// All digits this value carries: `fromString` reads them back to the same value and scale.
    String toPlainString() const;

    /// Replaces `out` by this number in base 16: "-" when negative, the integer part in upper-case
    /// digits without leading zeros (at least "0"), and unless `places` is 0 the `separator` and
    /// exactly `places` digits of base 16, the last rounded half away from zero; `places` is
    /// limited to 0 to 28. -255.5 with one place is "-FF.8". The invalid value gives "INVALID".
    void formatHex(String& out, char separator, int places) const;

    constexpr Decimal operator-() const noexcept;

    friend constexpr Decimal operator+(Decimal left, Decimal right) noexcept {
        if (left.high_ == right.high_ && left.isSmall()) [[likely]] {
            // Two coefficients of 18 digits cannot overflow 64 bits.
            const std::int64_t sum = left.low_ + right.low_;
            if (isSmallCoefficient(sum)) [[likely]]
                return {sum, left.high_};
        }
        return add(left, right);
    }

    friend constexpr Decimal operator-(Decimal left, Decimal right) noexcept {
        if (left.high_ == right.high_ && left.isSmall()) [[likely]] {
            const std::int64_t difference = left.low_ - right.low_;
            if (isSmallCoefficient(difference)) [[likely]]
                return {difference, left.high_};
        }
        return add(left, -right);
    }

    friend constexpr Decimal operator*(Decimal left, Decimal right) noexcept {
        if (areSmall(left, right)) [[likely]] {
            const std::uint64_t scale = left.high_ + right.high_;
            std::int64_t product = 0;
            if (scale <= maxScaleCM && !__builtin_mul_overflow(left.low_, right.low_, &product) &&
                isSmallCoefficient(product)) [[likely]] {
                return {product, scale};
            }
        }
        return multiply(left, right);
    }

    /// The quotient without trailing zeros beyond the difference of the operands' scales. Division
    /// by zero is invalid.
    friend Decimal operator/(Decimal left, Decimal right) noexcept {
        if (areSmall(left, right) && right.low_ != 0) [[likely]]
            return divideSmall(left, right);
        return divide(left, right);
    }

    /// Numeric equality and order; see `compare`.
    friend constexpr bool operator==(Decimal left, Decimal right) noexcept {
        if (left.high_ == right.high_) [[likely]]
            return left.low_ == right.low_;
        return left.compare(right) == 0;
    }

    friend constexpr std::weak_ordering operator<=>(Decimal left, Decimal right) noexcept {
        if (left.high_ == right.high_ && left.isSmall()) [[likely]]
            return left.low_ <=> right.low_;
        return left.compare(right) <=> 0;
    }

private:
    struct [[gnu::visibility("hidden")]] Parts;

    // Two forms. Small, a coefficient of up to 18 digits: `low_` is the signed coefficient and
    // `high_` only the scale. Wide, 19 to 28 digits: `low_` holds the low 64 bits of the magnitude,
    // `high_` its upper 32 bits in its upper half, the wide mark, the sign mark and the scale. Each
    // value and scale has exactly one form, so with equal scales the words can be compared.
    static constexpr std::uint64_t scaleMaskCM = 0x1F;
    static constexpr std::uint64_t wideCM = 0x100;
    static constexpr std::uint64_t negativeCM = 0x200;
    static constexpr std::uint64_t invalidCM = 0x400;
    static constexpr std::int64_t smallLimitCM = 1'000'000'000'000'000'000;

    constexpr Decimal(std::int64_t low, std::uint64_t high) noexcept : low_(low), high_(high) {}

    constexpr bool isSmall() const noexcept { return high_ <= scaleMaskCM; }
    static constexpr bool areSmall(Decimal left, Decimal right) noexcept {
        return (left.high_ | right.high_) <= scaleMaskCM;
    }
    static constexpr bool isSmallCoefficient(std::int64_t number) noexcept {
        // -limit < number < limit in one comparison.
        return static_cast<std::uint64_t>(number) + (smallLimitCM - 1) <
               static_cast<std::uint64_t>(2 * smallLimitCM - 1);
    }

    // Operations that are not inline, for all operands; `divideSmall` takes two small ones, the
    // divisor not 0.
    static Decimal add(Decimal left, Decimal right) noexcept;
    static Decimal multiply(Decimal left, Decimal right) noexcept;
    static Decimal divide(Decimal left, Decimal right) noexcept;
    static Decimal divideSmall(Decimal left, Decimal right) noexcept;

    std::int64_t low_ = 0;
    std::uint64_t high_ = 0;
};

constexpr Decimal::Decimal(std::int64_t number) noexcept : low_(number) {
    if (!isSmallCoefficient(number)) {
        high_ = wideCM;
        if (number < 0) {
            high_ |= negativeCM;
            low_ = static_cast<std::int64_t>(0 - static_cast<std::uint64_t>(number));
        }
    }
}

constexpr Decimal Decimal::operator-() const noexcept {
    if (isSmall()) [[likely]]
        return {-low_, high_};
    return {low_, isValid() ? high_ ^ negativeCM : high_};
}

constexpr Decimal Decimal::abs() const noexcept {
    if (isSmall()) [[likely]]
        return {low_ < 0 ? -low_ : low_, high_};
    return {low_, high_ & ~negativeCM};
}

/// The invalid decimal.
inline constexpr Decimal INVALID_DECIMAL = Decimal::invalid();

static_assert(sizeof(Decimal) == 16 && std::is_trivially_copyable_v<Decimal>);

}  // namespace FND

/// The null value of the Decimal type: zero.
inline constexpr FND::Decimal FND_DECIMAL_NULL{};
