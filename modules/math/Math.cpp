#include <cmath>

#include "fnd/Decimal.h"
#include "modules/Support.h"

namespace Modules::MathModule {

namespace {

using FND::Decimal;

// The whole number next to one, in the direction of `step`.
template <int step>
Decimal whole(const Decimal& number) {
    const Decimal towardZero = number.round(0, Decimal::RoundingMode::Down);
    const bool isBefore = step < 0 ? towardZero > number : towardZero < number;
    return isBefore ? towardZero + Decimal(step) : towardZero;
}

Decimal power(const Decimal& base, long exponent) {
    if (base.isZero() && exponent < 0) refuse("0 has no power of", exponent);
    Decimal result(1);
    Decimal square = base;
    for (auto left = exponent < 0 ? 0 - static_cast<unsigned long>(exponent)
                                  : static_cast<unsigned long>(exponent);
         left > 0; left /= 2) {
        if (left % 2 == 1) result = result * square;
        if (left > 1) square = square * square;
    }
    return exponent < 0 ? Decimal(1) / result : result;
}

template <double (*function)(double)>
Decimal through(const Decimal& number) {
    return Decimal::fromDouble(function(number.toDouble()));
}

template <double (*function)(double)>
Decimal logarithm(const Decimal& number) {
    if (number.isValid() && number <= Decimal()) {
        FND::String text;
        number.format(text, number.scale());
        refuse("no logarithm of", text);
    }
    return through<function>(number);
}

Decimal atan2(const Decimal& y, const Decimal& x) {
    return Decimal::fromDouble(std::atan2(y.toDouble(), x.toDouble()));
}

long bitAnd(long a, long b) { return a & b; }
long bitOr(long a, long b) { return a | b; }
long bitXor(long a, long b) { return a ^ b; }

long shift(long number, long places) {
    constexpr long width = 64;
    auto bits = static_cast<std::uint64_t>(number);
    if (places <= -width || places >= width) return 0;
    bits = places < 0 ? bits >> -places : bits << places;
    return static_cast<long>(bits);
}

constexpr ModuleFunction functionsS[] = {
    {"Decimal floor(Decimal number)", SCR::addFunction<whole<-1>>, Effect::None,
     "The greatest whole number that is not above `number`. Here and below the result for "
     "INVALID_DECIMAL, or one that is too large, is INVALID_DECIMAL.",
     R"(math::floor(-1.5) == -2)"},
    {"Decimal ceil(Decimal number)", SCR::addFunction<whole<1>>, Effect::None,
     "The least whole number that is not below `number`.", R"(math::ceil(1.01) == 2)"},
    {"Decimal power(Decimal base, Long exponent)", SCR::addFunction<power>, Effect::None,
     "`base` so many times by itself, exact as far as 28 digits go; 1 by that for a negative "
     "exponent. 0 to a negative one is an error, and the result 0.",
     R"(math::power(1.1, 2) == 1.21 and math::power(2, -2) == 0.25)"},
    {"Decimal exp(Decimal number)", SCR::addFunction<through<std::exp>>, Effect::None,
     "The power of e. This and the next functions compute in double precision, about 15 digits.",
     R"(math::exp(0) == 1)"},
    {"Decimal log(Decimal number)", SCR::addFunction<logarithm<std::log>>, Effect::None,
     "The natural logarithm. Of 0 and less it is an error, and the result 0.",
     R"(math::log(1) == 0)"},
    {"Decimal log10(Decimal number)", SCR::addFunction<logarithm<std::log10>>, Effect::None,
     "The logarithm to the base 10, or as `log`.", R"(math::log10(1000) == 3)"},
    {"Decimal sin(Decimal angle)", SCR::addFunction<through<std::sin>>, Effect::None,
     "The sine of an angle in radians.", R"(math::sin(0) == 0)"},
    {"Decimal cos(Decimal angle)", SCR::addFunction<through<std::cos>>, Effect::None,
     "The cosine of an angle in radians.", R"(math::cos(0) == 1)"},
    {"Decimal atan2(Decimal y, Decimal x)", SCR::addFunction<atan2>, Effect::None,
     "The angle of the point, in radians from -pi to pi; `atan2(0, -1)` is pi.",
     R"(math::atan2(0, 1) == 0 and math::sin(math::atan2(1, 0)) == 1)"},
    {"Long bitAnd(Long a, Long b)", SCR::addFunction<bitAnd>, Effect::None,
     "The bits that both numbers have. Longs have 64 bits; negative ones are two's complements.",
     R"(math::bitAnd(12, 10) == 8)"},
    {"Long bitOr(Long a, Long b)", SCR::addFunction<bitOr>, Effect::None,
     "The bits that one of the numbers has.", R"(math::bitOr(12, 10) == 14)"},
    {"Long bitXor(Long a, Long b)", SCR::addFunction<bitXor>, Effect::None,
     "The bits that only one of the numbers has.", R"(math::bitXor(12, 10) == 6)"},
    {"Long shift(Long number, Long places)", SCR::addFunction<shift>, Effect::None,
     "The bits moved to the left, or to the right for negative places; those that move out are "
     "lost, and zeros come in.",
     R"(math::shift(1, 4) == 16 and math::shift(-1, -63) == 1)"},
};

constexpr SCR::ModuleTable tableS{
    "math", "Whole numbers, powers, logarithms and angles of Decimals, and bits of Longs.",
    functionsS};

}  // namespace

}  // namespace Modules::MathModule

KESTREL_MODULE(math, Modules::MathModule::tableS);
