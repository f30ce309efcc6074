#include "fnd/Decimal.h"

#include "Pieces.h"

#include <cmath>

#include "fnd/number/WideInteger.h"
#include "fuzz/decimal_check.h"

namespace {

using FND::Decimal;
using FND::INVALID_DECIMAL;
using FND::UInt128;
using FND::UInt192;
using Mode = Decimal::RoundingMode;

/// Sets the digits available and restores them at the end of a block.
class Width {
public:
    explicit Width(int digits) : before_(FND_MAX28DIGIT_DECIMAL_SUPPORT) {
        FND_MAX28DIGIT_DECIMAL_SUPPORT = digits == 28;
    }
    ~Width() { FND_MAX28DIGIT_DECIMAL_SUPPORT = before_; }
    Width(const Width&) = delete;
    Width& operator=(const Width&) = delete;

private:
    bool before_;
};

Decimal decimal(std::string_view text) { return Decimal::fromString(text); }

/// All digits of a number; a dash when it is invalid.
std::string shown(Decimal number) { return number.isValid() ? number.toPlainString() : "-"; }

// Random numbers against the schoolbook. Uniform ones would rarely meet the ends of words and of
// the digits available, numbers halfway between two results, numbers that differ only in zeros, and
// quotients that end.

class Operands {
public:
    UInt128 below(UInt128 limit) {
        return (static_cast<UInt128>(random_()) << 64 | random_()) % limit;
    }
    int upTo(int most) { return static_cast<int>(below(static_cast<UInt128>(most) + 1)); }

    UInt128 coefficient() {
        const int kind = upTo(7);
        if (kind < 2) {
            const UInt128 end = kind == 0
                                    ? UInt128{1} << std::array{0, 2, 31, 53, 63, 64, 90}[below(7)]
                                    : FND::powerOf10(std::array{9, 17, 18, 19, 27, 28}[below(6)]) /
                                          static_cast<UInt128>(std::array{1, 1, 1, 2, 3}[below(5)]);
            return std::max(end + below(5), UInt128{3}) - 3;
        }
        const UInt128 number = below(FND::powerOf10(1 + upTo(kind < 5 ? 27 : 11)));
        if (kind == 2) return number - number % FND::powerOf10(upTo(20));
        return kind == 3 ? number / 10 * 10 + 5 : number;
    }

    std::string text(UInt128 number, int scale) {
        std::string digits;
        for (; number != 0 || static_cast<int>(digits.size()) <= scale; number /= 10) {
            digits += static_cast<char>('0' + static_cast<int>(number % 10));
        }
        if (scale > 0) digits.insert(static_cast<std::size_t>(scale), 1, '.');
        if (upTo(2) == 0) digits += '-';
        return {digits.rbegin(), digits.rend()};
    }

    int scale() { return std::array{0, 2, 6, 27, 28, upTo(28), upTo(28)}[below(7)]; }

    /// Often with digits of equal weight, halfway between results, or a multiple of the other.
    std::pair<std::string, std::string> pair() {
        UInt128 left = coefficient();
        const UInt128 right = coefficient();
        int leftScale = scale();
        const int rightScale = upTo(3) == 0 ? leftScale : scale();
        const int zeros = upTo(6);
        switch (upTo(9)) {
            case 0:  // equal, or nearly so
                if (left >= FND::powerOf10(28 - zeros) || leftScale + zeros > 28) break;
                return {text(left, leftScale),
                        text(left * FND::powerOf10(zeros) + below(2), leftScale + zeros)};
            case 1:  // a sum with a digit more, or a tie of one, or nearly so
                left = FND::powerOf10(upTo(1) == 0 ? 28 : 18) - 1 - below(2);
                leftScale = upTo(27);
                if (upTo(2) == 0) return {text(left, leftScale), text(1 + below(2), leftScale)};
                return {text(left, leftScale), text(5 * FND::powerOf10(zeros) + below(3) - 1,
                                                    std::min(leftScale + 1 + zeros, 28))};
            case 2:  // a quotient that ends, or nearly so
                if (right == 0 || right > FND::powerOf10(18)) break;
                left = below(FND::powerOf10(28) / right) * right;
                break;
            case 3:  // too many digits, the last ones a tie or nearly so
                return {text(left, leftScale) + (leftScale == 0 ? "." : "") +
                            std::string(static_cast<std::size_t>(upTo(28)), "09"[upTo(1)]) +
                            std::array{"5", "50001", "49999", "0000000000005"}[below(4)],
                        text(right, rightScale)};
        }
        return {text(left, leftScale), text(right, rightScale)};
    }

private:
    std::mt19937_64 random_{28};
};

TEST(Decimal, AgreesWithTheSchoolbook) {
    Operands operands;
    for (int i = 0; i < 4000; ++i) {
        const auto [left, right] = operands.pair();
        const int places = operands.upTo(28);
        for (const int width : {28, 18}) {
            ASSERT_EQ("", DecimalCheck::difference(left, right, width, places))
                << left << " and " << right << " at " << places << ", " << width << " digits";
        }
    }
}

// Too rare for chance: with 18 digits, results just above a tie, where the whole of a long
// remainder counts, and numbers halfway between two doubles.
TEST(Decimal, AgreesWithTheSchoolbookOnRareOperands) {
    constexpr const char* pairs[][2] = {
        {"9.999999999999999999999999999", "9.999999999999999985000000001"},
        {"-9.999999999999999999999999999", "99999999.99999999995000000001"},
        {"3.70370367037037035500000001", "3"},
        {"3.70370367037037035500000000", "3"},
        {"9999999999999999999.999999999", "1"},
        {"99999999999999999999999.99999", "10000000000"},
        {"1152921504606847103.999999999", "1152921504606847104.000000001"},
        {"1152921504606847359.999999999", "1152921504606847360.000000000"},
        {"1152921504606847360.000000001", "9007199254740992.999999999"},
        {"9007199254740993.000000001", "-9007199254740995.000000000"},
        {"1237940039285380412339465.216", "1237940039285380412339465.217"},
    };
    for (const auto& [left, right] : pairs) {
        for (const int width : {28, 18}) {
            EXPECT_EQ("", DecimalCheck::difference(left, right, width, 2)) << left << " " << right;
        }
    }
}

// Text.

TEST(Decimal, TextIsStrict) {
    const std::pair<std::string_view, const char*> numbers[] = {
        {" \t\n\v\f\r42\r\n", "42"},
        {"+1.50", "1.50"},
        {"-.5", "-0.5"},
        {"-0.00", "0.00"},
        {"000000000000000000000000000000000000001.5", "1.5"},
    };
    for (const auto& [text, expected] : numbers) EXPECT_EQ(expected, shown(decimal(text))) << text;
    for (const std::string& text : Harness::pieces(
             "|   |+|.|-.|5.|1.2.3|1..2|--1|+-1|- 1|1 2|1,5|1e5|0x10|12a|nan|INVALID|1/2|1:|\xB2|"
             "123456789012345678901234.5678x|0.12345678901234567890123456789012x|"
             "1234567890123456789.1.2|12345678901234567890.|99999999999999999999999999999")) {
        EXPECT_FALSE(decimal(text).isValid()) << text;
    }
    EXPECT_FALSE(decimal(std::string_view("1\0", 2)).isValid());
}

TEST(Decimal, HexTextIsStrict) {
    const struct {
        std::string_view text;
        char separator;
        int places;
        const char* expected;
    } cases[] = {
        {"ff.8", '.', 1, "255.5"},
        {" -FF,8 ", ',', 3, "-255.500"},
        {"+A", '.', 0, "10"},
        {"0.8", '.', 0, "1"},
        {"-0.8", '.', 0, "-1"},
        {"-0.7F", '.', 0, "0"},
        {"FF.8", '.', -3, "256"},
        {"1.8", '.', 1000, "1.500000000000000000000000000"},
        {"0.00000000000000000000000000000000FFFF", '.', 2, "0.00"},
        {"204FCE5E3E25026110000000", '.', 0, "-"},
        {"204FCE5E3E2502610FFFFFFF", '.', 0, "9999999999999999999999999999"},
        {"204FCE5E3E2502610FFFFFFF.8", '.', 5, "-"},
        {"204FCE5E3E2502610FFFFFFF.7", '.', 5, "9999999999999999999999999999"},
        {"F.8", ',', 1, "-"},
    };
    for (const auto& [text, separator, places, expected] : cases) {
        EXPECT_EQ(expected, shown(Decimal::fromHexString(text, separator, places))) << text;
    }
    for (const char* text : {"", "-", ".8", "8.", "8.8.8", "FG", "8.G", "0x1F", "INVALID",
                             "FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF"}) {
        EXPECT_FALSE(Decimal::fromHexString(text, '.', 1).isValid()) << text;
    }
}

// Carries between the words of wide integers, too rare for decimals to meet them by chance.

constexpr bool areEqual(const UInt192& left, const UInt192& right) {
    return left.low == right.low && left.high == right.high;
}
constexpr UInt128 allOnesS = ~UInt128{0};
static_assert(areEqual(FND::sum({allOnesS, 5}, {1, 7}), {0, 13}));
static_assert(areEqual(FND::difference({0, 13}, {1, 7}), {allOnesS, 5}));
static_assert(areEqual(FND::negated(UInt192{0, 5}, true), {0, ~std::uint64_t{4}}));
static_assert(areEqual(FND::negated(UInt192{1, 5}, true), {allOnesS, ~std::uint64_t{5}}));
static_assert(areEqual(FND::shiftedLeft(3, 127), {UInt128{1} << 127, 1}));
static_assert(areEqual(FND::shiftedLeft(3, 128), {0, 3}));
static_assert(areEqual(FND::product(allOnesS >> 32, allOnesS >> 32),
                       {1 - (UInt128{1} << 97), ~std::uint64_t{0}}));
static_assert(FND::productHigh(allOnesS, allOnesS) == allOnesS - 1);

// The invalid value, zero and the limits.

static_assert(Decimal() == FND_DECIMAL_NULL && FND_DECIMAL_NULL.isZero());
static_assert(!INVALID_DECIMAL.isValid() && !INVALID_DECIMAL.isZero());
static_assert(!std::is_constructible_v<Decimal, double>);

TEST(Decimal, InvalidIsPassedOn) {
    const Decimal bad = INVALID_DECIMAL;
    for (const char* text : {"0", "-1.5", "9999999999999999999999999999"}) {
        const Decimal number = decimal(text);
        for (const Decimal result : {number + bad, bad + number, number - bad, bad - number,
                                     number * bad, bad * number, number / bad, bad / number}) {
            EXPECT_FALSE(result.isValid()) << text;
        }
        EXPECT_LT(bad, number);
        EXPECT_GT(number, bad);
        EXPECT_NE(bad, number);
        EXPECT_FALSE((number / Decimal()).isValid());
    }
    for (const Decimal result : {-bad, bad.abs(), bad.sqrt(), bad.round(1, Mode::Up), bad - bad,
                                 bad + bad, Decimal::fromDouble(bad.toDouble())}) {
        EXPECT_EQ(bad, result);
        EXPECT_LE(bad, result);
    }
    EXPECT_EQ(0, bad.toLong());
    EXPECT_TRUE(std::isnan(bad.toDouble()));
}

TEST(Decimal, Longs) {
    constexpr auto largest = std::numeric_limits<std::int64_t>::max();
    constexpr auto smallest = std::numeric_limits<std::int64_t>::min();
    for (const int digits : {28, 18}) {
        const Width width(digits);
        for (const std::int64_t number :
             {std::int64_t{0}, std::int64_t{-1}, std::int64_t{999'999'999'999'999'999},
              std::int64_t{1'000'000'000'000'000'000}, std::int64_t{-1'000'000'000'000'000'000},
              largest, smallest}) {
            const Decimal value(number);
            EXPECT_EQ(std::to_string(number), value.toPlainString());
            EXPECT_TRUE((value - value).isZero());
            EXPECT_EQ(value, -(-value));
            EXPECT_EQ(number < 0, value < Decimal());
        }
        // A result must fit, even if the operands did not have to.
        EXPECT_EQ(digits == 28, (Decimal(largest) + Decimal(1)).isValid());
    }
    const struct {
        const char* number;
        std::int64_t expected;
    } cases[] = {
        {"2.7", 2},
        {"-2.7", -2},
        {"0.99999999999999999999999", 1},  // the nearest double is 1
        {"9007199254740993", 9007199254740992},
        {"9223372036854775807", largest},
        {"9999999999999999999999999999", largest},
        {"-9223372036854775808", smallest},
        {"-9999999999999999999999999999", smallest},
    };
    for (const auto& [number, expected] : cases) {
        EXPECT_EQ(expected, decimal(number).toLong()) << number;
    }
}

TEST(Decimal, Doubles) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const struct {
        double number;
        const char* expected;
    } cases[] = {
        {-0.0, "0"},
        {0.1, "0.1"},
        {-123.456, "-123.456"},
        {9007199254740993.0, "9007199254740992"},
        {1e27, "1000000000000000000000000000"},
        {9.99999999999999e27, "9999999999999990000000000000"},
        {1e28, "-"},
        {-1e300, "-"},
        {5e-29, "0.0000000000000000000000000000"},
        {5.1e-29, "0.0000000000000000000000000001"},
        {5e-324, "0.0000000000000000000000000000"},
        {infinity, "-"},
        {-infinity, "-"},
        {std::numeric_limits<double>::quiet_NaN(), "-"},
    };
    for (const auto& [number, expected] : cases) {
        EXPECT_EQ(expected, shown(Decimal::fromDouble(number))) << number;
    }
    EXPECT_EQ("1.5", shown(decimal("2.25").sqrt()));
    EXPECT_EQ("0", shown(Decimal().sqrt()));
    EXPECT_EQ("-", shown(decimal("-0.01").sqrt()));
    EXPECT_EQ("-", shown(decimal("-12345678901234567890").sqrt()));
}

}  // namespace
