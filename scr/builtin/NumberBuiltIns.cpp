#include <algorithm>
#include <charconv>
#include <iterator>

#include "scr/builtin/base/BuiltIn.h"
#include "scr/builtin/base/BuiltInNode.h"
#include "scr/builtin/base/NumberText.h"

namespace SCR {

namespace {

/// The magnitude of `number`; works for the smallest Long too.
unsigned long magnitudeOf(long number) {
    const auto bits = static_cast<unsigned long>(number);
    return number < 0 ? 0 - bits : bits;
}

/// A number of decimal places for the decimal type, which has 0 to 28.
int placesOf(std::optional<long> places, long absent) {
    return static_cast<int>(std::clamp<long>(places.value_or(absent), 0, FND::Decimal::maxScaleCM));
}

/// The number of places of decimal texts when the script gives none.
constexpr long textPlacesS = 6;

/// The first byte of `separator`; a point when it is empty.
char separatorOf(const FND::String* separator) {
    return separator == nullptr || separator->empty() ? '.' : separator->front();
}

struct LongAbs final : BuiltInNode<LongAbs, LongType(LongType)> {
    static long value(Interpreter& /*interpreter*/, long number) {
        return static_cast<long>(magnitudeOf(number));
    }
};

struct StrToLong final : BuiltInNode<StrToLong, LongType(StringType)> {
    static long value(Interpreter& /*interpreter*/, const FND::String& text) {
        return readLong(text);
    }
};

struct StrHexToLong final : BuiltInNode<StrHexToLong, LongType(StringType)> {
    static long value(Interpreter& /*interpreter*/, const FND::String& text) {
        return static_cast<long>(readHex(text).value_or(0));
    }
};

struct LongToStr final : BuiltInNode<LongToStr, StringType(LongType)> {
    static void value(Interpreter& /*interpreter*/, FND::String& result, long number) {
        char buffer[20];  // a sign and 19 digits
        result.assign(buffer, std::to_chars(buffer, std::end(buffer), number).ptr);
    }
};

struct LongToHexStr final : BuiltInNode<LongToHexStr, StringType(LongType)> {
    static void value(Interpreter& /*interpreter*/, FND::String& result, long number) {
        char buffer[17];  // a sign and 16 digits
        char* const end = std::end(buffer);
        char* start = end;
        for (unsigned long rest = magnitudeOf(number); rest != 0; rest /= 16) {
            *--start = "0123456789ABCDEF"[rest % 16];
        }
        if (number < 0) *--start = '-';
        result.assign(start, end);
    }
};

struct LongToDecimal final : BuiltInNode<LongToDecimal, DecimalType(LongType)> {
    static FND::Decimal value(Interpreter& /*interpreter*/, long number) {
        return FND::Decimal(number);
    }
};

struct DecimalToLong final : BuiltInNode<DecimalToLong, LongType(DecimalType)> {
    static long value(Interpreter& /*interpreter*/, const FND::Decimal& number) {
        return number.toLong();
    }
};

struct DecimalAbs final : BuiltInNode<DecimalAbs, DecimalType(DecimalType)> {
    static FND::Decimal value(Interpreter& /*interpreter*/, const FND::Decimal& number) {
        return number.abs();
    }
};

struct StrToDecimal final : BuiltInNode<StrToDecimal, DecimalType(StringType)> {
    static FND::Decimal value(Interpreter& /*interpreter*/, const FND::String& text) {
        return readDecimal(text);
    }
};

struct DecimalToStr final : BuiltInNode<DecimalToStr, StringType(DecimalType, Optional<LongType>)> {
    static void value(Interpreter& /*interpreter*/, FND::String& result, const FND::Decimal& number,
                      std::optional<long> places) {
        number.format(result, placesOf(places, textPlacesS));
    }
};

struct DecimalToHexStr final
    : BuiltInNode<DecimalToHexStr,
                  StringType(DecimalType, Optional<StringType>, Optional<LongType>)> {
    static void value(Interpreter& /*interpreter*/, FND::String& result, const FND::Decimal& number,
                      const FND::String* separator, std::optional<long> places) {
        number.formatHex(result, separatorOf(separator), placesOf(places, textPlacesS));
    }
};

struct HexStrToDecimal final
    : BuiltInNode<HexStrToDecimal,
                  DecimalType(StringType, Optional<StringType>, Optional<LongType>)> {
    static FND::Decimal value(Interpreter& /*interpreter*/, const FND::String& text,
                              const FND::String* separator, std::optional<long> places) {
        return readHexDecimal(text, separatorOf(separator), placesOf(places, textPlacesS));
    }
};

class Round final
    : public BuiltInNode<Round, DecimalType(DecimalType, Optional<LongType>, Optional<LongType>)> {
public:
    /// The factory of "trunc", which takes no mode.
    static Node* truncFactory(Interpreter& interpreter, ParserStack& stack,
                              const FctDescr& /*descriptor*/) {
        auto node = build(interpreter, stack);
        node->mode_ = Mode::Down;
        return node.release();
    }

    FND::Decimal value(Interpreter& /*interpreter*/, const FND::Decimal& number,
                       std::optional<long> places, std::optional<long> mode) {
        if (mode) mode_ = modeOf(*mode);
        return number.round(placesOf(places, 0), mode_);
    }

private:
    using Mode = FND::Decimal::RoundingMode;

    /// The mode that one of the constants ROUND_PLAIN, ROUND_UP, ROUND_DOWN, ROUND_BANKERS stands
    /// for.
    static Mode modeOf(long mode) {
        switch (mode) {
            case 1:
                return Mode::Up;
            case 2:
                return Mode::Down;
            case 3:
                return Mode::Bankers;
            default:
                return Mode::Plain;
        }
    }

    Mode mode_ = Mode::Plain;
};

struct Sqrt final : BuiltInNode<Sqrt, DecimalType(DecimalType)> {
    static FND::Decimal value(Interpreter& /*interpreter*/, const FND::Decimal& number) {
        return number.sqrt();
    }
};

constexpr BuiltIn numberBuiltInsS[] = {
    {.number = 24,
     .signature = "Long longAbs(Long number)",
     .factory = LongAbs::factory,
     .manual = "The absolute value of `number`. The smallest Long, -9223372036854775808, has none "
               "and stays as it is.",
     .example = "longAbs(-7) == 7"},
    {.number = 25,
     .signature = "Long strToLong(String text)",
     .factory = StrToLong::factory,
     .manual = "The decimal integer at the beginning of `text`: white space (blank, `\\t`, `\\n`, "
               "vertical tab, form feed, `\\r`) and a sign may come before its digits, and what "
               "follows them is ignored. 0 when there are no digits; the largest or smallest Long "
               "when the number is out of range.",
     .example = R"(strToLong("  42abc") == 42 and strToLong("abc") == 0)"},
    {.number = 26,
     .signature = "Long strHexToLong(String text)",
     .factory = StrHexToLong::factory,
     .manual =
         "The hexadecimal number at the beginning of `text`: white space, a sign and `0x` or "
         "`0X` may come before its digits, which are of either case, and what follows them is "
         "ignored. 0 when there are no digits. The 64 bits are taken as a Long, so "
         "\"FFFFFFFFFFFFFFFF\" gives -1, and so does any number of more than 64 bits.",
     .example = R"(strHexToLong("0x1f") == 31 and strHexToLong("-1F") == -31)"},
    {.number = 28,
     .signature = "Long decimalToLong(Decimal number)",
     .factory = DecimalToLong::factory,
     .manual = "`number` converted to double precision and cut toward zero: beyond 2^53 not every "
               "integer survives. The largest or smallest Long when it is out of range; 0 for "
               "INVALID_DECIMAL.",
     .example = "decimalToLong(2.9) == 2 and decimalToLong(-2.9) == -2"},
    {.number = 29,
     .signature = "Decimal decimalAbs(Decimal number)",
     .factory = DecimalAbs::factory,
     .manual = "The absolute value of `number`; INVALID_DECIMAL stays invalid.",
     .example = "decimalAbs(-1.5) == 1.5"},
    {.number = 30,
     .signature = "Decimal strToDecimal(String text)",
     .factory = StrToDecimal::factory,
     .manual = "The number that `text` spells: white space around an optional sign, digits and an "
               "optional `.` with a digit or more after it; the digits before the `.` may be "
               "missing. Any other text, even the empty one, and a number too large give "
               "INVALID_DECIMAL. Digits beyond those that a Decimal has are rounded half to even.",
     .example = R"(strToDecimal(" -1.50 ") == -1.5 and strToDecimal("1,5") == INVALID_DECIMAL)"},
    {.number = 31,
     .signature = "Decimal round(Decimal number, [Long places, Long mode])",
     .factory = Round::factory,
     .manual =
         "`number` rounded to `places` digits after the point (default 0; less than 0 counts "
         "as 0 and more than 28 as 28). ROUND_PLAIN, which is the default and what every "
         "unknown mode means, rounds half away from zero, ROUND_UP away from zero, ROUND_DOWN "
         "toward zero, ROUND_BANKERS half to even. INVALID_DECIMAL stays invalid.",
     .example =
         "round(2.5) == 3 and round(2.5, 0, ROUND_BANKERS) == 2 and round(0.125, 2) == 0.13"},
    {.number = 32,
     .signature = "Decimal trunc(Decimal number, [Long places])",
     .factory = Round::truncFactory,
     .manual =
         "`number` with only the first `places` digits after the point: `round` with the mode "
         "ROUND_DOWN.",
     .example = "trunc(-2.7) == -2 and trunc(1.999, 1) == 1.9"},
    {.number = 33,
     .signature = "Decimal longToDecimal(Long number)",
     .factory = LongToDecimal::factory,
     .manual = "The exact value of `number`, without digits after the point.",
     .example = "longToDecimal(7) / 2 == 3.5"},
    {.number = 34,
     .signature = "String decimalToStrHex(Decimal number, [String separator, Long places])",
     .factory = DecimalToHexStr::factory,
     .manual = "`number` in base 16, in upper-case digits: `-` when it is negative, the integer "
               "part, the first byte of `separator` (a point when that is empty or left out) and "
               "`places` digits (default 6; less than 0 counts as 0, more than 28 as 28), the last "
               "one rounded half away from zero. No separator for 0 places. \"INVALID\" for "
               "INVALID_DECIMAL.",
     .example = R"(decimalToStrHex(255.5, ".", 1) == "FF.8" and )"
                R"(decimalToStrHex(-255, ",", 0) == "-FF")"},
    {.number = 35,
     .signature = "Decimal strHexToDecimal(String text, [String separator, Long places])",
     .factory = HexStrToDecimal::factory,
     .manual = "The number that `text` spells in base 16, with digits of either case before and "
               "after the first byte of `separator` (a point when that is empty or left out) and "
               "white space around it as for `strToDecimal`, rounded half away from zero to "
               "`places` decimal places (default 6; less than 0 counts as 0, more than 28 as 28). "
               "INVALID_DECIMAL for any other text, one with the prefix `0x` too.",
     .example = R"(strHexToDecimal("FF.8") == 255.5 and strHexToDecimal("-ff,8", ",", 0) == -256)"},
    {.number = 36,
     .signature = "Decimal sqrt(Decimal number)",
     .factory = Sqrt::factory,
     .manual = "The square root of `number`, computed in double precision. INVALID_DECIMAL when "
               "`number` is negative or invalid.",
     .example = "sqrt(6.25) == 2.5 and sqrt(-1) == INVALID_DECIMAL"},
    {.number = 45,
     .signature = "String decimalToStr(Decimal number, [Long places])",
     .factory = DecimalToStr::factory,
     .manual = "`number` with `places` digits after the point (default 6; less than 0 counts as 0, "
               "more than 28 as 28), rounded half away from zero; no point for 0 places. "
               "\"INVALID\" for INVALID_DECIMAL.",
     .example = R"(decimalToStr(1.5) == "1.500000" and decimalToStr(1.5, 2) == "1.50")"},
    {.number = 46,
     .signature = "String longToStr(Long number)",
     .factory = LongToStr::factory,
     .manual = "The decimal digits of `number`, after `-` when it is negative.",
     .example = R"(longToStr(-42) == "-42")"},
    {.number = 47,
     .signature = "String longToHexStr(Long number)",
     .factory = LongToHexStr::factory,
     .manual = "The magnitude of `number` in upper-case hexadecimal digits without leading zeros, "
               "after `-` when it is negative. \"\" for 0.",
     .example = R"(longToHexStr(-255) == "-FF" and longToHexStr(0) == "")"},
};

}  // namespace

std::span<const BuiltIn> numberBuiltIns() { return numberBuiltInsS; }

}  // namespace SCR
