#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "fnd/Decimal.h"
#include "schoolbook.h"

namespace {

using Expected = std::optional<Schoolbook::Number>;

void check(bool holds) {
    if (!holds) std::abort();
}

std::string textOf(const Expected& number, std::size_t places) {
    return number ? text(*number, places) : "INVALID";
}

// Equal in value, and in the number of digits behind the point.
void checkSame(FND::Decimal found, const Expected& expected) {
    check(found.toPlainString() == textOf(expected, expected ? expected->scale : 0));
}

void checkOne(FND::Decimal found, const Expected& expected, int places) {
    checkSame(found, expected);
    const auto count = static_cast<std::size_t>(places);
    check(found.toString(places) == textOf(expected, count));
    check(FND::Decimal::fromString(found.toPlainString()) == found);
    if (!expected) return;
    constexpr std::pair<FND::Decimal::RoundingMode, Schoolbook::Mode> modes[] = {
        {FND::Decimal::RoundingMode::Plain, Schoolbook::Mode::HalfUp},
        {FND::Decimal::RoundingMode::Up, Schoolbook::Mode::Up},
        {FND::Decimal::RoundingMode::Down, Schoolbook::Mode::Down},
        {FND::Decimal::RoundingMode::Bankers, Schoolbook::Mode::HalfEven}};
    for (const auto& [mode, schoolMode] : modes) {
        const FND::Decimal rounded = found.round(places, mode);
        check(rounded.toString(places) == text(*expected, count, schoolMode) || !rounded.isValid());
        check(rounded.scale() <= places || !rounded.isValid());
    }
    // A number in base 16 comes back where its fraction ends there, as that of an integer does.
    FND::String hex;
    found.formatHex(hex, '.', places);
    const FND::Decimal whole = found.round(0, FND::Decimal::RoundingMode::Down);
    whole.formatHex(hex, '.', 0);
    check(FND::Decimal::fromHexString(hex, '.', places) == whole);
}

}  // namespace

/// Reads two decimals, the input cut at its first "|", and holds them and what they give together
/// against the schoolbook. The first byte chooses the digits available and the places to round to.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > 200) return 0;
    const int places = data[0] % 32 % 29;
    FND_MAX28DIGIT_DECIMAL_SUPPORT = data[0] < 128;
    const std::size_t width = FND_MAX28DIGIT_DECIMAL_SUPPORT ? 28 : 18;
    const std::string_view input(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::size_t cut = input.find('|');
    const std::string_view texts[] = {input.substr(0, cut),
                                      cut == input.npos ? "7.30" : input.substr(cut + 1)};
    FND::Decimal values[2];
    Expected numbers[2];
    for (int i = 0; i < 2; ++i) {
        values[i] = FND::Decimal::fromString(texts[i]);
        if (const Expected number = Schoolbook::parsed(texts[i])) {
            numbers[i] = fitted(*number, width);
        }
        checkOne(values[i], numbers[i], places);
        FND::Decimal::fromHexString(texts[i], '.', places);
    }
    const auto& [a, b] = values;
    if (!numbers[0] || !numbers[1]) {
        check(!(a + b).isValid() && !(a - b).isValid() && !(a * b).isValid());
        check(!(a / b).isValid());
        return 0;
    }
    const Schoolbook::Number& left = *numbers[0];
    Schoolbook::Number right = *numbers[1];
    checkSame(a + b, fitted(sum(left, right), width));
    checkSame(a * b, fitted(product(left, right), width));
    const FND::Decimal quotient = a / b;
    check(quotient.toString(28) == textOf(Schoolbook::quotient(left, right, width), 28));
    const int order = a.compare(b);
    right.isNegative = !right.isNegative;
    const Schoolbook::Number difference = sum(left, right);
    checkSame(a - b, fitted(difference, width));
    check(order == (difference.digits.empty() ? 0 : difference.isNegative ? -1 : 1));
    check((a == b) == (order == 0) && (a < b) == (order < 0) && b.compare(a) == -order);
    return 0;
}
