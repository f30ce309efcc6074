#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// Decimals as taught at school, on strings of digits: slow, but easy to check. A second opinion on
/// the library's decimals.
namespace Schoolbook {

/// A natural number: digits '0' to '9', the highest first, none of them a leading zero.
using Natural = std::string;

inline Natural stripped(const std::string& digits) {
    return digits.substr(std::min(digits.find_first_not_of('0'), digits.size()));
}

/// -1, 0 or 1.
inline int compare(const Natural& a, const Natural& b) {
    if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
    const int order = a.compare(b);
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

inline Natural add(const Natural& a, const Natural& b) {
    std::string sum;
    int carry = 0;
    for (std::size_t i = 0; i < std::max(a.size(), b.size()) || carry != 0; ++i) {
        if (i < a.size()) carry += a[a.size() - 1 - i] - '0';
        if (i < b.size()) carry += b[b.size() - 1 - i] - '0';
        sum += static_cast<char>('0' + carry % 10);
        carry /= 10;
    }
    std::reverse(sum.begin(), sum.end());
    return sum;
}

/// `a` must not be less than `b`.
inline Natural subtract(const Natural& a, const Natural& b) {
    std::string difference = a;
    int borrow = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char& digit = difference[a.size() - 1 - i];
        int left = digit - '0' - borrow - (i < b.size() ? b[b.size() - 1 - i] - '0' : 0);
        borrow = left < 0 ? 1 : 0;
        digit = static_cast<char>('0' + left + 10 * borrow);
    }
    return stripped(difference);
}

inline Natural multiply(const Natural& a, const Natural& b) {
    std::string product(a.size() + b.size(), '0');
    for (std::size_t i = a.size(); i-- > 0;) {
        int carry = 0;
        for (std::size_t j = b.size(); j-- > 0; carry /= 10) {
            carry += (a[i] - '0') * (b[j] - '0') + product[i + j + 1] - '0';
            product[i + j + 1] = static_cast<char>('0' + carry % 10);
        }
        product[i] = static_cast<char>('0' + carry);
    }
    return stripped(product);
}

/// The quotient and, in `rest`, the remainder; `b` is not 0.
inline Natural divide(const Natural& a, const Natural& b, Natural& rest) {
    std::string quotient;
    rest.clear();
    for (const char digit : a) {
        if (!rest.empty() || digit != '0') rest += digit;
        quotient += '0';
        for (; compare(rest, b) >= 0; rest = subtract(rest, b)) ++quotient.back();
    }
    return stripped(quotient);
}

enum class Mode { HalfEven, HalfUp, Up, Down };

/// `digits` without its last `count` ones. `isMore`: the number is a little larger than `digits`.
inline Natural rounded(const Natural& digits, std::size_t count, bool isMore, Mode mode) {
    const std::string all =
        std::string(count > digits.size() ? count - digits.size() : 0, '0') + digits;
    const std::string kept = stripped(all.substr(0, all.size() - count));
    const std::string dropped = all.substr(all.size() - count);
    const bool isExact = !isMore && dropped.find_first_not_of('0') == std::string::npos;
    std::string half(count, '0');
    if (count != 0) half[0] = '5';
    int order = count == 0 ? -1 : dropped.compare(half);
    if (order == 0 && isMore) order = 1;
    bool isUp = false;
    switch (mode) {
        case Mode::HalfEven:
            isUp = order > 0 || (order == 0 && !kept.empty() && (kept.back() - '0') % 2 == 1);
            break;
        case Mode::HalfUp:
            isUp = order >= 0;
            break;
        case Mode::Up:
            isUp = !isExact;
            break;
        case Mode::Down:
            break;
    }
    return isUp ? add(kept, "1") : kept;
}

struct Number {
    bool isNegative = false;
    Natural digits;
    std::size_t scale = 0;  ///< the number of digits after the point
};

/// The number in at most `width` digits and 28 after the point; none when it is too large.
inline std::optional<Number> fitted(Number number, std::size_t width, bool isMore = false) {
    std::size_t drop = number.scale > 28 ? number.scale - 28 : 0;
    if (number.digits.size() > width) drop = std::max(drop, number.digits.size() - width);
    if (drop > number.scale) return std::nullopt;
    number.digits = rounded(number.digits, drop, isMore, Mode::HalfEven);
    number.scale -= drop;
    if (number.digits.size() > width) {  // 99...9 became 100...0
        if (number.scale == 0) return std::nullopt;
        number.digits.pop_back();
        --number.scale;
    }
    return number;
}

/// With exactly `places` digits after the point.
inline std::string text(const Number& number, std::size_t places, Mode mode = Mode::HalfUp) {
    Natural digits =
        number.scale > places
            ? rounded(number.digits, number.scale - places, false, mode)
            : number.digits + std::string(number.digits.empty() ? 0 : places - number.scale, '0');
    const bool isNegative = number.isNegative && !digits.empty();
    if (digits.size() <= places) digits.insert(0, places + 1 - digits.size(), '0');
    if (places != 0) digits.insert(digits.size() - places, 1, '.');
    return (isNegative ? "-" : "") + digits;
}

/// The number that `text` spells, before it is fitted.
inline std::optional<Number> parsed(std::string_view text) {
    constexpr std::string_view blanks = " \t\n\v\f\r";
    Number number;
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    text = text.substr(0, text.find_last_not_of(blanks) + 1);
    if (!text.empty() && (text[0] == '+' || text[0] == '-')) {
        number.isNegative = text[0] == '-';
        text.remove_prefix(1);
    }
    const std::size_t point = text.find('.');
    std::string digits(text.substr(0, point));
    if (point != text.npos) {
        const std::string_view fraction = text.substr(point + 1);
        if (fraction.empty()) return std::nullopt;
        number.scale = fraction.size();
        digits += fraction;
    }
    if (digits.empty() || digits.find_first_not_of("0123456789") != digits.npos)
        return std::nullopt;
    number.digits = stripped(digits);
    return number;
}

inline Number sum(const Number& a, const Number& b) {
    const std::size_t scale = std::max(a.scale, b.scale);
    const Natural left = stripped(a.digits + std::string(scale - a.scale, '0'));
    const Natural right = stripped(b.digits + std::string(scale - b.scale, '0'));
    if (a.isNegative == b.isNegative) return {a.isNegative, add(left, right), scale};
    if (compare(left, right) >= 0) return {a.isNegative, subtract(left, right), scale};
    return {b.isNegative, subtract(right, left), scale};
}

inline Number product(const Number& a, const Number& b) {
    return {a.isNegative != b.isNegative, multiply(a.digits, b.digits), a.scale + b.scale};
}

inline std::optional<Number> quotient(const Number& a, const Number& b, std::size_t width) {
    if (b.digits.empty()) return std::nullopt;
    // Enough digits for every result: 28 after the point and one for rounding.
    const std::size_t more = 29;
    Natural rest;
    Natural digits =
        divide(a.digits + std::string(a.digits.empty() ? 0 : more + b.scale, '0'), b.digits, rest);
    return fitted({a.isNegative != b.isNegative, digits, more + a.scale}, width, !rest.empty());
}

}  // namespace Schoolbook
