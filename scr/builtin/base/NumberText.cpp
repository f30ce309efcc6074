#include "scr/builtin/base/NumberText.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "scr/value/LargeText.h"

namespace SCR {

namespace {

constexpr std::string_view blanksS = " \t\n\v\f\r";

/// Removes white space and a sign from the front of `text`; true when the sign is a minus.
bool cutSign(std::string_view& text) {
    text = withoutFront(text, blanksS);
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+')) text.remove_prefix(1);
    return isNegative;
}

enum class Digits { None, Some, TooMany };

/// Reads the digits of `base` at the front of `text` into `value`: 0 if there are none, the largest
/// value if there are too many.
Digits readDigits(std::string_view text, int base, unsigned long& value) {
    value = 0;
    if (isLarge(text.size())) [[unlikely]] {
        const std::string_view digits = withoutFront(text, '0');
        const bool hasZero = digits.size() < text.size();
        // More digits than any number has.
        const Digits found = readDigits(digits.substr(0, 100), base, value);
        return found == Digits::None && hasZero ? Digits::Some : found;
    }
    const auto error = std::from_chars(text.data(), text.data() + text.size(), value, base).ec;
    if (error == std::errc()) return Digits::Some;
    if (error != std::errc::result_out_of_range) return Digits::None;
    value = std::numeric_limits<unsigned long>::max();
    return Digits::TooMany;
}

}  // namespace

long readLong(std::string_view text) {
    constexpr unsigned long largest = std::numeric_limits<long>::max();
    const bool isNegative = cutSign(text);
    unsigned long magnitude = 0;
    readDigits(text, 10, magnitude);
    if (isNegative) return static_cast<long>(0 - std::min(magnitude, largest + 1));
    return static_cast<long>(std::min(magnitude, largest));
}

std::optional<unsigned long> readHex(std::string_view text) {
    const bool isNegative = cutSign(text);
    if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
    unsigned long value = 0;
    const Digits digits = readDigits(text, 16, value);
    if (digits == Digits::None) return std::nullopt;
    return isNegative && digits == Digits::Some ? 0 - value : value;
}

// A long text can only have many zeros at the front, or many digits in the fraction. Of those only
// the first ones matter, and whether the others are all zeros.
FND::Decimal readDecimal(std::string_view text) {
    if (!isLarge(text.size())) [[likely]]
        return FND::Decimal::fromString(text);
    constexpr std::size_t enough = 500;  // for all digits and all places of a number
    text = withoutBack(withoutFront(text, blanksS), blanksS);
    FND::String number;
    if (text.starts_with('-') || text.starts_with('+')) {
        number = text.front();
        text.remove_prefix(1);
    }
    const std::string_view digits = withoutFront(text, '0');
    if (digits.size() < text.size()) number += '0';
    number += digits.substr(0, 2 * enough);
    if (digits.size() > 2 * enough) {
        if (digits.substr(0, enough).find('.') == std::string_view::npos)
            return FND::Decimal::invalid();
        const std::string_view others = withoutFront(digits.substr(2 * enough), '0');
        if (!withoutFront(others, std::string_view("0123456789")).empty())
            return FND::Decimal::invalid();
        number += others.empty() ? '0' : '1';
    }
    return FND::Decimal::fromString(number);
}

// As above; digits of the fraction beyond the first 32 do not count.
FND::Decimal readHexDecimal(std::string_view text, char separator, int places) {
    if (!isLarge(text.size())) [[likely]]
        return FND::Decimal::fromHexString(text, separator, places);
    constexpr std::size_t enough = 32;
    text = withoutBack(withoutFront(text, blanksS), blanksS);
    FND::String number;
    if (text.starts_with('-') || text.starts_with('+')) {
        number = text.front();
        text.remove_prefix(1);
    }
    const std::string_view whole = text.substr(0, findByte(text, separator));
    const std::string_view digits = withoutFront(whole, '0');
    if (digits.size() > enough) return FND::Decimal::invalid();
    if (digits.size() < whole.size()) number += '0';
    number += digits;
    text.remove_prefix(whole.size());
    const std::string_view fraction = text.substr(std::min<std::size_t>(text.size(), 1));
    if (!withoutFront(fraction, std::string_view("0123456789abcdefABCDEF")).empty())
        return FND::Decimal::invalid();
    number += text.substr(0, 1 + enough);
    return FND::Decimal::fromHexString(number, separator, places);
}

}  // namespace SCR
