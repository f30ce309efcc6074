#include "scr/builtin/NumberText.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace SCR {

namespace {

/// Cuts white space and a sign off the front of `text`; true when the sign is a minus.
bool cutSign(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+')) text.remove_prefix(1);
    return isNegative;
}

enum class Digits { None, Some, TooMany };

/// Reads the digits of `base` at the front of `text` into `value`, which is 0 without any and the
/// largest when there are too many.
Digits readDigits(std::string_view text, int base, unsigned long& value) {
    value = 0;
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

}  // namespace SCR
