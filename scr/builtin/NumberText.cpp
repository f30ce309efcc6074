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

/// The digits of `base` at the front of `text`; the largest value when there are too many, nothing
/// when there are none.
std::optional<unsigned long> readDigits(std::string_view text, int base) {
    unsigned long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error == std::errc::result_out_of_range) return std::numeric_limits<unsigned long>::max();
    if (error != std::errc()) return std::nullopt;
    return value;
}

}  // namespace

long readLong(std::string_view text) {
    constexpr unsigned long largest = std::numeric_limits<long>::max();
    const bool isNegative = cutSign(text);
    const unsigned long magnitude = readDigits(text, 10).value_or(0);
    if (isNegative) return static_cast<long>(0 - std::min(magnitude, largest + 1));
    return static_cast<long>(std::min(magnitude, largest));
}

std::optional<unsigned long> readHex(std::string_view text) {
    const bool isNegative = cutSign(text);
    if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
    const std::optional<unsigned long> value = readDigits(text, 16);
    if (!isNegative || !value || *value == std::numeric_limits<unsigned long>::max()) return value;
    return 0 - *value;
}

}  // namespace SCR
