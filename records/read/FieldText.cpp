#include "records/read/FieldText.h"

#include <algorithm>
#include <charconv>
#include <string>

namespace Records {
namespace {

std::string_view trimmed(std::string_view text) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

// A number as it is spelled: 0.DIGITS times ten to the power of `point`.
struct Spelled {
    std::string digits;  // without zeros at either end
    long point = 0;
    bool isNegative = false;
};

std::optional<Spelled> spell(std::string_view text) {
    Spelled number;
    const auto isSign = [&](char sign) { return !text.empty() && text.front() == sign; };
    number.isNegative = isSign('-');
    if (number.isNegative || isSign('+')) text.remove_prefix(1);
    const std::size_t size = std::min(text.find_first_of("eE"), text.size());
    bool hasPoint = false;
    bool hasDigit = false;
    for (const char c : text.substr(0, size)) {
        if (c == '.' && hasDigit && !hasPoint) {
            hasPoint = true;
            hasDigit = false;  // there must be one after it
            continue;
        }
        if (c < '0' || c > '9') return std::nullopt;
        hasDigit = true;
        const bool isLeadingZero = number.digits.empty() && c == '0';
        if (!isLeadingZero) number.digits += c;
        if (!hasPoint) number.point += isLeadingZero ? 0 : 1;
        if (hasPoint && isLeadingZero) --number.point;
    }
    if (!hasDigit) return std::nullopt;
    if (size != text.size()) {
        std::string_view exponent = text.substr(size + 1);
        if (exponent.size() > 1 && exponent.front() == '+' && exponent[1] != '-') {
            exponent.remove_prefix(1);
        }
        // Beyond these no digit matters; the sum with `point` stays in range.
        constexpr long most = 1'000'000'000'000;
        long power = 0;
        const char* const end = exponent.data() + exponent.size();
        const auto [stop, error] = std::from_chars(exponent.data(), end, power);
        if (stop != end || error == std::errc::invalid_argument) return std::nullopt;
        if (error != std::errc()) power = exponent.front() == '-' ? -most : most;
        number.point += std::clamp(power, -most, most);
    }
    while (!number.digits.empty() && number.digits.back() == '0') number.digits.pop_back();
    return number;
}

}  // namespace

std::optional<long> readLong(std::string_view text) {
    long value = 0;
    const auto read = [&value](std::string_view digits) {
        const char* const end = digits.data() + digits.size();
        const auto [stop, error] = std::from_chars(digits.data(), end, value);
        return error == std::errc() && stop == end;
    };
    if (read(text)) return value;
    const std::optional<Spelled> number = spell(trimmed(text));
    if (!number) return std::nullopt;
    if (number->digits.empty()) return 0;
    constexpr long longest = 19;  // digits that a Long has
    const auto size = static_cast<long>(number->digits.size());
    if (number->point < size || number->point > longest) return std::nullopt;
    std::string whole = (number->isNegative ? "-" : "") + number->digits;
    whole.append(static_cast<std::size_t>(number->point - size), '0');
    return read(whole) ? std::optional(value) : std::nullopt;
}

FND::Decimal readDecimal(std::string_view text) {
    const FND::Decimal plain = FND::Decimal::fromString(text);
    if (plain.isValid() || text.find_first_of("eE") == std::string_view::npos) return plain;
    const std::optional<Spelled> number = spell(trimmed(text));
    if (!number) return FND::Decimal::invalid();
    constexpr long most = 2L * FND::Decimal::maxScaleCM;
    const auto size = static_cast<long>(number->digits.size());
    if (size == 0 || number->point < -most) return FND::Decimal(0);
    if (number->point > most) return FND::Decimal::invalid();
    std::string digits = number->digits;
    if (number->point <= 0) {
        digits.insert(0, "0." + std::string(static_cast<std::size_t>(-number->point), '0'));
    } else if (number->point < size) {
        digits.insert(static_cast<std::size_t>(number->point), 1, '.');
    } else {
        digits.append(static_cast<std::size_t>(number->point - size), '0');
    }
    return FND::Decimal::fromString((number->isNegative ? "-" : "") + digits);
}

bool losesDigits(std::string_view text) {
    constexpr auto most = static_cast<std::size_t>(FND::Decimal::maxScaleCM);
    if (text.size() <= most && text.find_first_of("eE") == std::string_view::npos) return false;
    const std::optional<Spelled> number = spell(trimmed(text));
    return number &&
           (number->digits.size() > most ||
            static_cast<long>(number->digits.size()) - number->point > FND::Decimal::maxScaleCM);
}

FND::DateTime readDate(std::string_view text) { return FND::DateTime::parse(trimmed(text)); }

bool losesFraction(std::string_view text) {
    const std::size_t point = text.find_first_of(".,");
    if (point == std::string_view::npos) return false;
    text.remove_prefix(point + 1);
    return text.substr(0, text.find_first_not_of("0123456789")).find_first_not_of('0') !=
           std::string_view::npos;
}

}  // namespace Records
