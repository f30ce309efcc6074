#pragma once

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "fnd/Decimal.h"
#include "schoolbook.h"

/// Compares two decimals, and the results of operations on them, with the schoolbook.
class DecimalCheck {
public:
    /// The first difference for the numbers that `left` and `right` spell, with results of `width`
    /// digits (28 or 18), rounded to `places`; empty when there is none. Operands have up to 28
    /// digits in both widths.
    static std::string difference(std::string_view left, std::string_view right, int width,
                                  int places) {
        const bool before = FND_MAX28DIGIT_DECIMAL_SUPPORT;
        DecimalCheck check(static_cast<std::size_t>(width), places);
        check.checkPair(left, right);
        FND_MAX28DIGIT_DECIMAL_SUPPORT = before;
        return check.difference_;
    }

private:
    using Decimal = FND::Decimal;
    using Expected = std::optional<Schoolbook::Number>;

    DecimalCheck(std::size_t width, int places)
        : width_(width), places_(places), count_(static_cast<std::size_t>(places)) {}

    void same(const char* what, const std::string& found, const std::string& expected) {
        if (found != expected && difference_.empty()) {
            difference_ = std::string(what) + " is " + found + ", not " + expected;
        }
    }
    void holds(const char* what, bool does) { same(what, does ? "true" : "false", "true"); }

    static std::string textOf(const Expected& number) {
        return number ? text(*number, number->scale) : "INVALID";
    }
    /// The same in value and in the number of digits after the point.
    void same(const char* what, Decimal found, const Expected& expected) {
        same(what, found.toPlainString(), textOf(expected));
    }

    void checkPair(std::string_view leftText, std::string_view rightText) {
        const std::string_view texts[] = {leftText, rightText};
        Decimal values[2];
        Expected numbers[2];
        for (int i = 0; i < 2; ++i) {
            const Expected spelled = Schoolbook::parsed(texts[i]);
            FND_MAX28DIGIT_DECIMAL_SUPPORT = width_ == 28;
            same("text", Decimal::fromString(texts[i]),
                 spelled ? fitted(*spelled, width_) : std::nullopt);
            FND_MAX28DIGIT_DECIMAL_SUPPORT = true;
            values[i] = Decimal::fromString(texts[i]);
            if (spelled) numbers[i] = fitted(*spelled, 28);
            FND_MAX28DIGIT_DECIMAL_SUPPORT = width_ == 28;
            if (numbers[i]) checkOne(values[i], *numbers[i]);
        }
        const auto& [a, b] = values;
        if (numbers[0] && numbers[1]) {
            checkResults(a, b, *numbers[0], *numbers[1]);
        } else {
            for (const Decimal result : {a + b, a - b, a * b, a / b}) {
                holds("invalid with an invalid operand", !result.isValid());
            }
        }
    }

    void checkOne(Decimal found, const Schoolbook::Number& number) {
        same("toString", found.toString(places_), text(number, count_));
        constexpr std::pair<Decimal::RoundingMode, Schoolbook::Mode> modes[] = {
            {Decimal::RoundingMode::Plain, Schoolbook::Mode::HalfUp},
            {Decimal::RoundingMode::Up, Schoolbook::Mode::Up},
            {Decimal::RoundingMode::Down, Schoolbook::Mode::Down},
            {Decimal::RoundingMode::Bankers, Schoolbook::Mode::HalfEven}};
        for (const auto& [mode, schoolMode] : modes) {
            same("round", found.round(places_, mode).toPlainString(),
                 text(number, std::min(count_, number.scale), schoolMode));
        }
        const double nearest = std::strtod(found.toPlainString().c_str(), nullptr);
        holds("toDouble", found.toDouble() == nearest);
        if (number.digits.size() <= 15) holds("fromDouble", Decimal::fromDouble(nearest) == found);
        checkHex(found, number);
    }

    void checkHex(Decimal found, const Schoolbook::Number& number) {
        const std::string unit = power("16", count_);
        const std::string units =
            Schoolbook::rounded(Schoolbook::multiply(number.digits, unit), number.scale, false,
                                Schoolbook::Mode::HalfUp);
        std::string expected;
        for (std::string left = units; !left.empty() || expected.size() <= count_;) {
            int rest = 0;
            for (char& digit : left) {
                rest = rest * 10 + digit - '0';
                digit = static_cast<char>('0' + rest / 16);
                rest %= 16;
            }
            left = Schoolbook::stripped(left);
            expected += "0123456789ABCDEF"[rest];
        }
        if (places_ > 0) expected.insert(count_, 1, '.');
        if (number.isNegative && !units.empty()) expected += '-';
        std::reverse(expected.begin(), expected.end());
        FND::String hex;
        found.formatHex(hex, '.', places_);
        same("formatHex", hex, expected);

        std::string rest;
        std::string digits =
            Schoolbook::divide(units.empty() ? "" : units + std::string(count_, '0'), unit, rest);
        if (Schoolbook::compare(Schoolbook::add(rest, rest), unit) >= 0)
            digits = Schoolbook::add(digits, "1");
        if (digits.size() > width_) return;
        same("fromHexString", Decimal::fromHexString(expected, '.', places_),
             Schoolbook::Number{number.isNegative, digits, count_});
    }

    static std::string power(const std::string& base, std::size_t exponent) {
        std::string result = "1";
        for (; exponent > 0; --exponent) result = Schoolbook::multiply(result, base);
        return result;
    }

    void checkResults(Decimal a, Decimal b, const Schoolbook::Number& left,
                      const Schoolbook::Number& right) {
        const Schoolbook::Number minus{!right.isNegative, right.digits, right.scale};
        const Schoolbook::Number gap = sum(left, minus);
        same("sum", a + b, fitted(sum(left, right), width_));
        same("difference", a - b, fitted(gap, width_));
        same("product", a * b, fitted(product(left, right), width_));
        Expected quotient = Schoolbook::quotient(left, right, width_);
        if (quotient) {
            // Without trailing zeros, except for those that the operands' scales require.
            const std::size_t least = left.scale - std::min(left.scale, right.scale);
            std::string& digits = quotient->digits;
            for (; quotient->scale > least && (digits.empty() || digits.back() == '0');
                 --quotient->scale) {
                if (!digits.empty()) digits.pop_back();
            }
        }
        same("quotient", a / b, quotient);
        const int order = gap.digits.empty() ? 0 : gap.isNegative ? -1 : 1;
        holds("compare", a.compare(b) == order && b.compare(a) == -order);
        holds("operators", (a == b) == (order == 0) && (a < b) == (order < 0) &&
                               (a > b) == (order > 0) && -a.abs() <= a && a.abs() >= a);
    }

    const std::size_t width_;
    const int places_;
    const std::size_t count_;
    std::string difference_;
};
