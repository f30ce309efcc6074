#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "fnd/Decimal.h"
#include "fnd/number/DecimalParts.h"

// Conversions of decimals from and to text and double.

namespace FND {

namespace {

constexpr std::string_view invalidDecimalS = "INVALID";

constexpr bool isSpace(char byte) noexcept { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

/// `text` without the blanks around it and without its sign, which is returned separately.
std::string_view withoutSign(std::string_view text, bool& negative) noexcept {
    while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
    negative = !text.empty() && text.front() == '-';
    if (negative || (!text.empty() && text.front() == '+')) text.remove_prefix(1);
    return text;
}

/// Appends pieces of a number's text to a fixed buffer: sign, 28 digits, point and 28 places fit.
class NumberText {
public:
    void append(char byte) noexcept { bytes_[length_++] = byte; }

    void append(const char* bytes, int count) noexcept {
        std::memcpy(bytes_ + length_, bytes, static_cast<std::size_t>(count));
        length_ += static_cast<std::size_t>(count);
    }

    void appendZeros(int count) noexcept {
        std::memset(bytes_ + length_, '0', static_cast<std::size_t>(count));
        length_ += static_cast<std::size_t>(count);
    }

    /// The decimal digits of `number`, at least one.
    void appendDecimal(UInt128 number) noexcept {
        if (number >= powerOf10(18)) {
            const auto [upper, lower] = divideByPowerOf10(number, 18);
            appendWord(lowWord(upper));
            appendZeros(18 - std::max(digitCount(lower), 1));
            appendWord(lowWord(lower));
        } else {
            appendWord(lowWord(number));
        }
    }

    /// The lower `count` hexadecimal digits of `number`.
    void appendHex(UInt128 number, int count) noexcept {
        for (int shift = 4 * (count - 1); shift >= 0; shift -= 4) {
            append("0123456789ABCDEF"[static_cast<unsigned>(number >> shift) & 0xF]);
        }
    }

    const char* data() const noexcept { return bytes_; }
    int length() const noexcept { return static_cast<int>(length_); }
    operator std::string_view() const noexcept { return {bytes_, length_}; }

private:
    void appendWord(std::uint64_t number) noexcept {
        const auto result = std::to_chars(bytes_ + length_, bytes_ + sizeof bytes_, number);
        length_ = static_cast<std::size_t>(result.ptr - bytes_);
    }

    char bytes_[64];
    std::size_t length_ = 0;
};

int hexDigit(char byte) noexcept {
    if (byte >= '0' && byte <= '9') return byte - '0';
    if (byte >= 'A' && byte <= 'F') return byte - 'A' + 10;
    if (byte >= 'a' && byte <= 'f') return byte - 'a' + 10;
    return -1;
}

}  // namespace

Decimal Decimal::fromString(std::string_view text) noexcept {
    bool negative = false;
    text = withoutSign(text, negative);
    if (text.empty() || text.back() == '.') return invalid();

    // Up to 18 digits need no count and no rounding.
    if (text.size() <= 18) {
        std::int64_t coefficient = 0;
        std::uint64_t scale = 0;
        bool isFraction = false;
        for (const char byte : text) {
            const unsigned digit = static_cast<unsigned char>(byte) - unsigned{'0'};
            if (digit <= 9) {
                coefficient = coefficient * 10 + static_cast<std::int64_t>(digit);
                scale += isFraction ? 1 : 0;
            } else if (byte == '.' && !isFraction) {
                isFraction = true;
            } else {
                return invalid();
            }
        }
        return {negative ? -coefficient : coefficient, scale};
    }

    const int precision = decimalPrecision();
    // The digits kept, without leading zeros: the first 18 of them and the others.
    int length = 0;
    std::uint64_t first = 0;
    std::uint64_t others = 0;
    int scale = 0;
    bool isFraction = false;
    // The digits dropped: the first of them, and whether another one is not 0.
    int firstDropped = -1;
    bool more = false;
    for (const char byte : text) {
        const int digit = byte - '0';
        const bool isFull = length == precision || scale == maxScaleCM;
        if (byte == '.' && !isFraction) {
            isFraction = true;
        } else if (digit < 0 || digit > 9 || (isFull && !isFraction)) {
            return invalid();
        } else if (!isFull) {
            std::uint64_t& word = length < 18 ? first : others;
            word = word * 10 + static_cast<unsigned>(digit);
            length += length != 0 || digit != 0 ? 1 : 0;
            scale += isFraction ? 1 : 0;
        } else if (firstDropped < 0) {
            firstDropped = digit;
        } else {
            more |= digit != 0;
        }
    }
    const UInt128 magnitude =
        static_cast<UInt128>(first) * smallPowerOf10(std::max(length - 18, 0)) + others;
    const bool up = firstDropped > 5 || (firstDropped == 5 && (more || (magnitude & 1) != 0));
    return Parts::joinRounded(negative, magnitude, scale, up, precision);
}

Decimal Decimal::fromDouble(double number) noexcept {
    if (!std::isfinite(number)) return invalid();
    constexpr double exactS = 9007199254740992.0;  // 2^53
    if (std::abs(number) < exactS) {
        if (const auto whole = static_cast<std::int64_t>(number);
            static_cast<double>(whole) == number) {
            return Decimal(whole);
        }
    }
    // One digit, "." and further digits unless there are none, "e", the exponent's sign and digits.
    char text[32];
    const char* end =
        std::to_chars(text, text + sizeof text, std::abs(number), std::chars_format::scientific)
            .ptr;
    std::uint64_t magnitude = 0;
    int scale = 0;
    const char* next = text;
    for (; *next != 'e'; ++next) {
        if (*next == '.') continue;
        magnitude = magnitude * 10 + static_cast<std::uint64_t>(*next - '0');
        ++scale;
    }
    ++next;
    if (*next == '+') ++next;
    int exponent = 0;
    std::from_chars(next, end, exponent);
    scale -= exponent + 1;
    if (scale >= 0) return Parts::fit(number < 0, magnitude, scale);
    if (digitCount(magnitude) - scale > decimalPrecision()) return invalid();
    return Parts::join(number < 0, magnitude * powerOf10(-scale), 0);
}

double Decimal::toDouble() const noexcept {
    // A division of two integers that doubles hold exactly rounds once.
    static constexpr double powersS[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                         1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                         1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    constexpr std::int64_t exactS = std::int64_t{1} << 53;
    if (high_ < std::size(powersS) && low_ <= exactS && low_ >= -exactS) [[likely]] {
        return static_cast<double>(low_) / powersS[high_];
    }
    if (!isValid()) return std::numeric_limits<double>::quiet_NaN();
    // More bits of the quotient than a double has; the last one represents all later bits. So the
    // conversion rounds as if it saw them, and the scaling by a power of two is exact.
    const Parts parts(*this);
    const UInt128 unit = powerOf10(parts.scale);
    const int shift = std::max(66 - bitLength(parts.magnitude) + bitLength(unit), 0);
    const auto [quotient, remainder] = divideWide(shiftedLeft(parts.magnitude, shift), unit);
    const auto number = static_cast<double>(quotient | (remainder != 0 ? 1 : 0));
    return std::ldexp(parts.negative ? -number : number, -shift);
}

std::int64_t Decimal::toLong() const noexcept {
    constexpr double limitS = 9223372036854775808.0;  // 2^63
    if (!isValid()) return 0;
    const double number = toDouble();
    if (number >= limitS) return std::numeric_limits<std::int64_t>::max();
    if (number < -limitS) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(number);
}

void Decimal::format(String& out, int places) const {
    if (!isValid()) {
        out.assign(invalidDecimalS);
        return;
    }
    places = clampPlaces(places);
    const Parts parts(round(places, RoundingMode::Plain));
    NumberText digits;
    digits.appendDecimal(parts.magnitude);
    const int whole = digits.length() - parts.scale;

    NumberText text;
    if (parts.negative) text.append('-');
    if (whole > 0) {
        text.append(digits.data(), whole);
    } else {
        text.append('0');
    }
    if (places > 0) {
        text.append('.');
        if (whole > 0) {
            text.append(digits.data() + whole, parts.scale);
        } else {
            text.appendZeros(-whole);
            text.append(digits.data(), digits.length());
        }
        text.appendZeros(places - parts.scale);
    }
    out.assign(text);
}

String Decimal::toString(int places) const {
    String text;
    format(text, places);
    return text;
}

String Decimal::toPlainString() const { return toString(scale()); }

void Decimal::formatHex(String& out, char separator, int places) const {
    if (!isValid()) {
        out.assign(invalidDecimalS);
        return;
    }
    places = clampPlaces(places);
    const Parts parts(*this);
    const UInt128 unit = powerOf10(parts.scale);
    UInt128 whole = parts.magnitude / unit;
    UInt128 rest = parts.magnitude % unit;
    UInt128 fraction = 0;
    for (int bit = 0; bit < 4 * places; ++bit) {
        rest <<= 1;
        fraction <<= 1;
        if (rest >= unit) {
            rest -= unit;
            fraction |= 1;
        }
    }
    if (2 * rest >= unit && ++fraction >> (4 * places) != 0) {
        fraction = 0;
        ++whole;
    }

    NumberText text;
    if (parts.negative && (whole | fraction) != 0) text.append('-');
    int digits = 1;
    while (whole >> (4 * digits) != 0) ++digits;
    text.appendHex(whole, digits);
    if (places > 0) {
        text.append(separator);
        text.appendHex(fraction, places);
    }
    out.assign(text);
}

Decimal Decimal::fromHexString(std::string_view text, char separator, int places) noexcept {
    bool negative = false;
    text = withoutSign(text, negative);
    const std::size_t point = std::min(text.find(separator), text.size());
    const std::string_view wholeText = text.substr(0, point);
    if (wholeText.empty() || point + 1 == text.size()) return invalid();

    const int precision = decimalPrecision();
    const UInt128 limit = powerOf10(precision);
    UInt128 magnitude = 0;
    for (const char byte : wholeText) {
        const int digit = hexDigit(byte);
        if (digit < 0) return invalid();
        magnitude = magnitude * 16 + static_cast<unsigned>(digit);
        if (magnitude >= limit) return invalid();
    }
    // The fraction in units of 2^-128.
    UInt128 fraction = 0;
    int shift = 128;
    for (const char byte : text.substr(std::min(point + 1, text.size()))) {
        const int digit = hexDigit(byte);
        if (digit < 0) return invalid();
        if (shift > 0) fraction |= static_cast<UInt128>(digit) << (shift -= 4);
    }
    int scale = 0;
    for (places = clampPlaces(places); scale < places && magnitude < limit / 10; ++scale) {
        const UInt128 low = static_cast<UInt128>(static_cast<std::uint64_t>(fraction)) * 10;
        const UInt128 high = (fraction >> 64) * 10 + (low >> 64);
        fraction = high << 64 | static_cast<std::uint64_t>(low);
        magnitude = magnitude * 10 + static_cast<std::uint64_t>(high >> 64);
    }
    return Parts::joinRounded(negative, magnitude, scale, fraction >> 127 != 0, precision);
}

}  // namespace FND
