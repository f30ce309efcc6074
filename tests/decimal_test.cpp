#include "fnd/Decimal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "fnd/WideInteger.h"

namespace {

using FND::Decimal;
using FND::INVALID_DECIMAL;
using Mode = Decimal::RoundingMode;

/// Sets the digits available and puts them back at the end of a block.
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

/// All digits of a number; a dash when it is invalid, as in the vectors.
std::string shown(Decimal number) { return number.isValid() ? number.toPlainString() : "-"; }

// Vectors: lines of fields between blanks, the results made by an independent implementation.

using Fields = std::vector<std::string>;

/// Calls `check` with the fields of each line of a file of vectors; `check` returns the fields as
/// they should have been.
void forEachVector(const std::string& name, const std::function<Fields(const Fields&)>& check) {
    std::ifstream file(std::string(KESTREL_TEST_DATA) + "/data/decimal/" + name + ".txt");
    int count = 0;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with('#')) continue;
        std::istringstream stream(line);
        Fields fields;
        for (std::string field; stream >> field;) fields.push_back(field);
        EXPECT_EQ(fields, check(fields)) << name << ": " << line;
        ++count;
    }
    EXPECT_GT(count, 300) << name;
}

using Operation = Decimal (*)(Decimal, Decimal);

struct ArithmeticVectors {
    const char* name;
    Operation operation;
};

class DecimalArithmetic : public testing::TestWithParam<ArithmeticVectors> {};

TEST_P(DecimalArithmetic, Vectors) {
    forEachVector(GetParam().name, [](const Fields& fields) {
        const Decimal left = decimal(fields[0]);
        const Decimal right = decimal(fields[1]);
        Fields result{shown(left), shown(right)};
        for (const int digits : {28, 18}) {
            const Width width(digits);
            result.push_back(shown(GetParam().operation(left, right)));
        }
        return result;
    });
}

constexpr ArithmeticVectors arithmeticVectorsS[] = {
    {"add", [](Decimal left, Decimal right) { return left + right; }},
    {"sub", [](Decimal left, Decimal right) { return left - right; }},
    {"mul", [](Decimal left, Decimal right) { return left * right; }},
    {"div", [](Decimal left, Decimal right) { return left / right; }},
};

INSTANTIATE_TEST_SUITE_P(Decimal, DecimalArithmetic, testing::ValuesIn(arithmeticVectorsS),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(DecimalVectors, Compare) {
    forEachVector("compare", [](const Fields& fields) -> Fields {
        const Decimal left = decimal(fields[0]);
        const Decimal right = decimal(fields[1]);
        const int order = left.compare(right);
        EXPECT_EQ(-order, right.compare(left));
        EXPECT_EQ(order < 0, left < right);
        EXPECT_EQ(order > 0, left > right);
        EXPECT_EQ(order <= 0, left <= right);
        EXPECT_EQ(order >= 0, left >= right);
        EXPECT_EQ(order == 0, left == right);
        EXPECT_EQ(order != 0, left != right);
        return {fields[0], fields[1], std::to_string(order)};
    });
}

TEST(DecimalVectors, Round) {
    forEachVector("round", [](const Fields& fields) {
        const Decimal number = decimal(fields[0]);
        Fields result{fields[0], fields[1]};
        for (const Mode mode : {Mode::Plain, Mode::Up, Mode::Down, Mode::Bankers}) {
            result.push_back(shown(number.round(std::stoi(fields[1]), mode)));
        }
        return result;
    });
}

TEST(DecimalVectors, Parse) {
    forEachVector("parse", [](const Fields& fields) {
        Fields result{fields[0]};
        for (const int digits : {28, 18}) {
            const Width width(digits);
            result.push_back(shown(decimal(fields[0])));
        }
        return result;
    });
}

TEST(DecimalVectors, Format) {
    forEachVector("format", [](const Fields& fields) -> Fields {
        return {fields[0], fields[1], decimal(fields[0]).toString(std::stoi(fields[1]))};
    });
}

TEST(DecimalVectors, Double) {
    forEachVector("double", [](const Fields& fields) -> Fields {
        const double number = std::strtod(fields[1].c_str(), nullptr);
        if (fields[0] != "-") {
            EXPECT_EQ(number, decimal(fields[0]).toDouble()) << fields[0];
            return fields;
        }
        Fields result{"-", fields[1]};
        for (const int digits : {28, 18}) {
            const Width width(digits);
            // The scale may differ, as the fewest digits have no zeros at the end.
            const Decimal converted = Decimal::fromDouble(number);
            const std::string& expected = fields[result.size()];
            result.push_back(converted == decimal(expected) ? expected : shown(converted));
        }
        return result;
    });
}

TEST(DecimalVectors, Hex) {
    forEachVector("hex", [](const Fields& fields) -> Fields {
        const int places = std::stoi(fields[1]);
        std::string text;
        decimal(fields[0]).formatHex(text, '.', places);
        if (fields[3] == "?") return {fields[0], fields[1], text, "?"};
        return {fields[0], fields[1], text, shown(Decimal::fromHexString(text, '.', places))};
    });
}

// Text.

TEST(Decimal, TextIsStrict) {
    const struct {
        std::string_view text;
        const char* expected;
    } cases[] = {
        {"0", "0"},
        {" \t\n\v\f\r42\r\n", "42"},
        {"+1.50", "1.50"},
        {"-.5", "-0.5"},
        {"-0.00", "0.00"},
        {"000000000000000000000000000000000000001.5", "1.5"},
        {"", "-"},
        {"   ", "-"},
        {"+", "-"},
        {".", "-"},
        {"-.", "-"},
        {"5.", "-"},
        {"1.2.3", "-"},
        {"1..2", "-"},
        {"--1", "-"},
        {"+-1", "-"},
        {"- 1", "-"},
        {"1 2", "-"},
        {"1,5", "-"},
        {"1e5", "-"},
        {"0x10", "-"},
        {"12a", "-"},
        {"nan", "-"},
        {"INVALID", "-"},
        {std::string_view("1\0", 2), "-"},
        {"1/2", "-"},
        {"1:", "-"},
        {"\xB2", "-"},
        {"123456789012345678901234.5678x", "-"},
        {"0.12345678901234567890123456789012x", "-"},
        {"1234567890123456789.1.2", "-"},
        {"12345678901234567890.", "-"},
        {"99999999999999999999999999999", "-"},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(expected, shown(decimal(text))) << text;
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
        {"FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF", '.', 0, "-"},
        {"", '.', 1, "-"},
        {"-", '.', 1, "-"},
        {".8", '.', 1, "-"},
        {"8.", '.', 1, "-"},
        {"8.8.8", '.', 1, "-"},
        {"FG", '.', 1, "-"},
        {"8.G", '.', 1, "-"},
        {"0x1F", '.', 1, "-"},
        {"F.8", ',', 1, "-"},
        {"INVALID", '.', 1, "-"},
    };
    for (const auto& [text, separator, places, expected] : cases) {
        EXPECT_EQ(expected, shown(Decimal::fromHexString(text, separator, places))) << text;
    }
}

TEST(Decimal, FormattedText) {
    const struct {
        const char* number;
        int places;
        const char* expected;
        const char* hex;
    } cases[] = {
        {"1.5", 6, "1.500000", "1.800000"},
        {"1.5", 0, "2", "2"},
        {"-0.5", 0, "-1", "-1"},
        {"-0.4", 0, "0", "0"},
        {"-0.004", 2, "0.00", "-0.01"},
        {"-0.001", 2, "0.00", "0.00"},
        {"-255.5", -7, "-256", "-100"},
        {"0.1", 1000, "0.1000000000000000000000000000", "0.199999999999999999999999999A"},
        {"255.99999", 1, "256.0", "100.0"},
        {"-9999999999999999999999999999", 28,
         "-9999999999999999999999999999.0000000000000000000000000000",
         "-204FCE5E3E2502610FFFFFFF.0000000000000000000000000000"},
        {"999999999999999999.9999999999", 2, "1000000000000000000.00", "DE0B6B3A7640000.00"},
        {"100000000000000000000.5", 1, "100000000000000000000.5", "56BC75E2D63100000.8"},
        {"invalid", 2, "INVALID", "INVALID"},
    };
    for (const auto& [number, places, expected, hex] : cases) {
        std::string text = "left over";
        decimal(number).format(text, places);
        EXPECT_EQ(expected, text) << number;
        decimal(number).formatHex(text, '.', places);
        EXPECT_EQ(hex, text) << number;
    }
}

TEST(Decimal, FormatReusesMemory) {
    std::string text(100, 'x');
    const char* const memory = text.data();
    decimal("12345678901234567890.12345678").format(text, 8);
    decimal("-12345678901234567890.12345678").formatHex(text, '.', 28);
    EXPECT_EQ(memory, text.data());
}

// Carries between the words of wide integers, too rare for decimals to meet them by chance.

using FND::UInt128;
using FND::UInt192;

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
        // A result has to fit, even where the operands were exempt.
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

TEST(Decimal, RoundLimitsPlaces) {
    const Decimal number = decimal("-2.55");
    EXPECT_EQ("-3", shown(number.round(std::numeric_limits<int>::min(), Mode::Plain)));
    EXPECT_EQ("-2.55", shown(number.round(std::numeric_limits<int>::max(), Mode::Plain)));
}

// Laws that hold for all numbers, in both widths.

TEST(Decimal, Laws) {
    std::mt19937_64 random(7);
    const auto number = [&random] {
        std::string text(random() % 2 == 0 ? "" : "-");
        const std::size_t digits = 1 + random() % (FND_MAX28DIGIT_DECIMAL_SUPPORT ? 28 : 18);
        const std::size_t point = random() % (digits + 1);
        for (std::size_t i = 0; i < digits; ++i) {
            if (i == point) text += '.';
            text += static_cast<char>('0' + (random() % 3 == 0 ? 0 : random() % 10));
        }
        return decimal(text);
    };
    const Decimal one(1);
    for (const int digits : {28, 18}) {
        const Width width(digits);
        for (int i = 0; i < 20'000; ++i) {
            const Decimal a = number();
            const Decimal b = number();
            const auto what = [&] { return shown(a) + " and " + shown(b); };
            ASSERT_TRUE(a.isValid() && b.isValid());
            EXPECT_EQ(shown(a), shown(decimal(shown(a))));
            EXPECT_EQ(shown(a + b), shown(b + a)) << what();
            EXPECT_EQ(shown(a * b), shown(b * a)) << what();
            EXPECT_EQ(shown(a - b), shown(-(b - a))) << what();
            EXPECT_EQ(shown((-a) * b), shown(-(a * b))) << what();
            EXPECT_EQ(a, a * one) << what();
            EXPECT_EQ(a, a / one) << what();
            EXPECT_EQ(a, a + Decimal()) << what();
            EXPECT_EQ(a.abs(), a < Decimal() ? -a : a) << what();
            const Decimal difference = a - b;
            if (difference.isValid() && difference.scale() >= std::max(a.scale(), b.scale())) {
                EXPECT_EQ(a.compare(b), difference.compare(Decimal())) << what();
                EXPECT_EQ(a, difference + b) << what();
            }
            // Nothing lies between a number and its nearest neighbours downward and upward.
            const int places = static_cast<int>(random() % 29);
            const Decimal down = a.round(places, Mode::Down).abs();
            const Decimal up = a.round(places, Mode::Up).abs();
            EXPECT_TRUE(down <= a.abs() && a.abs() <= up) << what() << " at " << places;
            for (const Mode mode : {Mode::Plain, Mode::Bankers}) {
                const Decimal near = a.round(places, mode).abs();
                EXPECT_TRUE(near == down || near == up) << what() << " at " << places;
            }
            EXPECT_EQ(a.toString(places), a.round(places, Mode::Plain).toString(places));
        }
    }
}

}  // namespace
