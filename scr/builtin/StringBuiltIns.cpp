#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "scr/builtin/base/BuiltIn.h"
#include "scr/builtin/base/BuiltInNode.h"
#include "scr/builtin/base/NumberText.h"
#include "scr/message/Messages.h"
#include "scr/run/MemoryCharge.h"
#include "scr/value/LargeText.h"

namespace SCR {

namespace {

struct Length final : BuiltInNode<Length, LongType(StringType)> {
    static long value(Interpreter& /*interpreter*/, const FND::String& text) {
        return static_cast<long>(text.size());
    }
};

/// Changes the case of the 26 letters from `firstLetter` on. Without a branch, so that the compiler
/// maps many bytes at once.
template <char firstLetter>
struct MapCase final : BuiltInNode<MapCase<firstLetter>, StringType(StringType)> {
    void value(Interpreter& /*interpreter*/, FND::String& result, const FND::String& text) const {
        if (!this->reserve(result, text.size(), text)) return;
        result.clear();
        inPieces(text.size(), [&](std::size_t begin, std::size_t end) {
            result.resize(end);
            const char* const from = text.data();
            std::transform(from + begin, from + end, result.data() + begin, [](char byte) {
                const auto place = static_cast<unsigned char>(byte - firstLetter);
                return static_cast<char>(byte ^ (place < 26 ? 'a' - 'A' : 0));
            });
        });
    }
};

using ToLower = MapCase<'A'>;
using ToUpper = MapCase<'a'>;

/// Whether `length` bytes at `position` lie within `text`.
bool isRange(const FND::String& text, long position, long length) {
    const long size = static_cast<long>(text.size());
    return position >= 0 && length >= 0 && position <= size && length <= size - position;
}

struct Substr final : BuiltInNode<Substr, StringType(StringType, LongType, LongType)> {
    void value(Interpreter& /*interpreter*/, FND::String& result, const FND::String& text,
               long position, long length) const {
        if (!isRange(text, position, length)) {
            result.clear();
        } else if (reserve(result, static_cast<std::size_t>(length), text, position, length)) {
            result.clear();
            appendInPieces(result, std::string_view(text).substr(static_cast<std::size_t>(position),
                                                                 static_cast<std::size_t>(length)));
        }
    }
};

struct Replace final
    : BuiltInNode<Replace, StringType(StringType, LongType, LongType, StringType)> {
    void value(Interpreter& /*interpreter*/, FND::String& result, const FND::String& text,
               long position, long length, const FND::String& replacement) const {
        result.clear();
        if (!isRange(text, position, length)) return;
        const auto start = static_cast<std::size_t>(position);
        const auto count = static_cast<std::size_t>(length);
        if (!reserve(result, text.size() - count + replacement.size(), text, position, length,
                     replacement)) {
            return;
        }
        const std::string_view source = text;
        appendInPieces(result, source.substr(0, start));
        appendInPieces(result, replacement);
        appendInPieces(result, source.substr(start + count));
    }
};

/// Whether two texts agree in their first `size` bytes, or up to a NUL in both.
bool areAlike(const char* a, const char* b, std::size_t size) {
    for (; size > textPieceSizeS; size -= textPieceSizeS) {
        if (std::strncmp(a, b, textPieceSizeS) != 0) return false;
        if (std::memchr(a, 0, textPieceSizeS) != nullptr) return true;
        countWork(textPieceSizeS);
        a += textPieceSizeS;
        b += textPieceSizeS;
    }
    return std::strncmp(a, b, size) == 0;
}

struct StrStartsWith final : BuiltInNode<StrStartsWith, BoolType(StringType, StringType)> {
    static bool value(Interpreter& /*interpreter*/, const FND::String& text,
                      const FND::String& prefix) {
        return areAlike(text.c_str(), prefix.c_str(), prefix.size());
    }
};

struct StrEndsWith final : BuiltInNode<StrEndsWith, BoolType(StringType, StringType)> {
    static bool value(Interpreter& /*interpreter*/, const FND::String& text,
                      const FND::String& suffix) {
        if (suffix.size() > text.size()) return false;
        return areAlike(text.c_str() + (text.size() - suffix.size()), suffix.c_str(),
                        suffix.size());
    }
};

/// The ends that "strStrip" works on, as the constants STRIP_LEADING, STRIP_TRAILING and
/// STRIP_BOTH.
enum StripMode : long { Leading = 1, Trailing = 2, Both = 3 };

struct StrStrip final
    : BuiltInNode<StrStrip, StringType(StringType, Optional<LongType>, Optional<StringType>)> {
    void value(Interpreter& /*interpreter*/, FND::String& result, const FND::String& text,
               std::optional<long> mode, const FND::String* character) const {
        const char stripped = character == nullptr || character->empty() ? ' ' : character->front();
        const long ends = mode.value_or(Trailing);
        std::string_view rest = text;
        if (ends == Leading || ends == Both) rest = withoutFront(rest, stripped);
        if (ends != Leading) rest = withoutBack(rest, stripped);
        if (!reserve(result, rest.size(), text, mode, character)) return;
        result.clear();
        appendInPieces(result, rest);
    }
};

struct StrPad final : BuiltInNode<StrPad, StringType(StringType, StringType, LongType, BoolType)> {
    void value(Interpreter& /*interpreter*/, FND::String& result, const FND::String& text,
               const FND::String& fill, long length, bool atEnd) const {
        result.clear();
        if (length < 0) {
            fail(Messages::negativeLength(length), text, fill, length, atEnd);
            return;
        }
        const auto size = static_cast<std::size_t>(length);
        if (!reserve(result, size, text, fill, length, atEnd)) return;
        const std::size_t padding = size - std::min(size, text.size());
        const char filler = fill.empty() ? ' ' : fill.front();
        const auto pad = [&] {
            inPieces(padding, [&](std::size_t begin, std::size_t end) {
                result.append(end - begin, filler);
            });
        };
        if (!atEnd) pad();
        appendInPieces(result, std::string_view(text).substr(0, size));
        if (atEnd) pad();
    }
};

struct StrByteValue final : BuiltInNode<StrByteValue, LongType(StringType)> {
    static long value(Interpreter& /*interpreter*/, const FND::String& text) {
        return text.empty() ? 0 : static_cast<unsigned char>(text.front());
    }
};

/// The functions that write or read hexadecimal digits.
template <class Derived>
struct HexFunction : BuiltInNode<Derived, StringType(StringType)> {
protected:
    /// Makes room for a result. False after a message when there is none; these functions have a
    /// message of their own for a lack of memory.
    bool reserveHex(Interpreter& interpreter, FND::String& result, std::size_t size,
                    const FND::String& text) const {
        result.clear();
        const bool isAllowed = isResultSize(interpreter, size);
        if (isAllowed && tryReserveResult(result, size)) return true;
        this->fail(isAllowed ? Messages::noMemoryForDigits : Messages::resultTooLong(size), text);
        return false;
    }
};

/// The two digits of each byte.
constexpr std::array<std::array<char, 2>, 256> hexDigitsS = [] {
    std::array<std::array<char, 2>, 256> digits{};
    for (std::size_t i = 0; i < 256; ++i) {
        digits[i] = {"0123456789ABCDEF"[i >> 4], "0123456789ABCDEF"[i & 15]};
    }
    return digits;
}();

struct StrToHexStr final : HexFunction<StrToHexStr> {
    void value(Interpreter& interpreter, FND::String& result, const FND::String& bytes) const {
        if (!reserveHex(interpreter, result, 2 * bytes.size(), bytes)) return;
        inPieces(bytes.size(), [&](std::size_t begin, std::size_t end) {
            result.resize(2 * end);
            char* out = result.data() + 2 * begin;
            for (std::size_t i = begin; i < end; ++i) {
                const auto& digits = hexDigitsS[static_cast<unsigned char>(bytes[i])];
                out = std::copy(digits.begin(), digits.end(), out);
            }
        });
    }
};

/// The value of each byte as a hexadecimal digit; -1 for other bytes.
constexpr std::array<short, 256> codedDigitsS = [] {
    std::array<short, 256> values{};
    values.fill(-1);
    for (unsigned i = 0; i < 10; ++i) values['0' + i] = static_cast<short>(i);
    for (unsigned i = 10; i < 16; ++i) {
        values['A' + i - 10] = values['a' + i - 10] = static_cast<short>(i);
    }
    return values;
}();

struct HexStrToStr final : HexFunction<HexStrToStr> {
    void value(Interpreter& interpreter, FND::String& result, const FND::String& text) const {
        result.clear();
        if (text.size() % 2 != 0) return logInvalid(text);
        if (!reserveHex(interpreter, result, text.size() / 2, text)) return;
        bool isSound = true;
        inPieces(text.size() / 2, [&](std::size_t begin, std::size_t end) {
            if (!isSound) return;
            result.resize(end);
            for (std::size_t i = begin; i < end && isSound; ++i) {
                isSound = decode(text.data() + 2 * i, result[i]);
            }
        });
        if (isSound) return;
        fail(Messages::noDigits, text);
        result.clear();
    }

private:
    /// Unlike others, this message holds the whole text, whatever its length.
    void logInvalid(const FND::String& text) const {
        constexpr std::string_view before = Messages::beforeOddDigits;
        constexpr std::string_view after = Messages::afterOddDigits;
        const std::size_t size = before.size() + text.size() + after.size();
        const BufferCharge charge(blockBytes(size + 1));
        FND::String message;
        message.reserve(size);
        message += before;
        appendInPieces(message, text);
        message += after;
        fail(message, text);
    }

    /// Reads the two characters at `pair`, usually two digits. False when they are not.
    static bool decode(const char* pair, char& byte) {
        const int high = codedDigitsS[static_cast<unsigned char>(pair[0])];
        const int low = codedDigitsS[static_cast<unsigned char>(pair[1])];
        if ((high | low) >= 0) [[likely]] {
            byte = static_cast<char>(high * 16 + low);
            return true;
        }
        const std::optional<unsigned long> value = readHex({pair, 2});
        byte = static_cast<char>(value.value_or(0));
        return value.has_value();
    }
};

constexpr std::string_view lengthS = "The number of bytes of `text`.";
constexpr std::string_view toLowerS =
    "`text` with each of the letters A to Z in lower case; all other bytes stay, those above 127 "
    "too.";
constexpr std::string_view toUpperS =
    "`text` with each of the letters a to z in upper case; all other bytes stay, those above 127 "
    "too.";
constexpr std::string_view substrS =
    "The `length` bytes of `text` from `position` on, the first byte being 0. \"\" unless all of "
    "them lie within `text`: nothing is clipped.";
constexpr std::string_view replaceS =
    "`text` with the `length` bytes from `position` on replaced by `replacement`. \"\" unless all "
    "of them lie within `text`. A length of 0 inserts.";

constexpr BuiltIn stringBuiltInsS[] = {
    {.number = 22,
     .signature = "Long length(String text)",
     .factory = Length::factory,
     .manual = lengthS,
     .example = R"(length("four") == 4)"},
    {.number = 23,
     .signature = "Long strLength(String text)",
     .factory = Length::factory,
     .manual = lengthS,
     .example = R"(strLength("") == 0)"},
    {.number = 37,
     .signature = "String toLower(String text)",
     .factory = ToLower::factory,
     .manual = toLowerS,
     .example = R"(toLower("Room 12B") == "room 12b")"},
    {.number = 38,
     .signature = "String strToLower(String text)",
     .factory = ToLower::factory,
     .manual = toLowerS,
     .example = R"(strToLower("ABC") == "abc")"},
    {.number = 39,
     .signature = "String toUpper(String text)",
     .factory = ToUpper::factory,
     .manual = toUpperS,
     .example = R"(toUpper("Room 12b") == "ROOM 12B")"},
    {.number = 40,
     .signature = "String strToUpper(String text)",
     .factory = ToUpper::factory,
     .manual = toUpperS,
     .example = R"(strToUpper("abc") == "ABC")"},
    {.number = 41,
     .signature = "String substr(String text, Long position, Long length)",
     .factory = Substr::factory,
     .manual = substrS,
     .example = R"(substr("abcdef", 2, 3) == "cde" and substr("abc", 1, 5) == "")"},
    {.number = 42,
     .signature = "String strSubstr(String text, Long position, Long length)",
     .factory = Substr::factory,
     .manual = substrS,
     .example = R"(strSubstr("abc", 0, 3) == "abc")"},
    {.number = 43,
     .signature = "String replace(String text, Long position, Long length, String replacement)",
     .factory = Replace::factory,
     .manual = replaceS,
     .example = R"(replace("abcdef", 2, 2, "XY") == "abXYef")"},
    {.number = 44,
     .signature = "String strReplace(String text, Long position, Long length, String replacement)",
     .factory = Replace::factory,
     .manual = replaceS,
     .example = R"(strReplace("ac", 1, 0, "b") == "abc" and strReplace("abc", 2, 5, "X") == "")"},
    {.number = 50,
     .signature = "Bool strStartsWith(String text, String prefix)",
     .factory = StrStartsWith::factory,
     .manual = "Whether `text` begins with `prefix`; true for an empty one. Bytes are compared up "
               "to the length of `prefix` and no further than a NUL byte; the end of `text` counts "
               "as one. Bytes after a NUL byte that both have make no difference.",
     .example = R"(strStartsWith("kernel", "ker") == true)"},
    {.number = 51,
     .signature = "Bool strEndsWith(String text, String suffix)",
     .factory = StrEndsWith::factory,
     .manual = "Whether `text` ends with `suffix`; true for an empty one, false for one that is "
               "longer than `text`. Of the last bytes of `text`, as many as `suffix` has, those "
               "after a NUL byte that both have make no difference.",
     .example = R"(strEndsWith("kernel", "nel") == true)"},
    {.number = 55,
     .signature = "String strStrip(String text, [Long mode, String character])",
     .factory = StrStrip::factory,
     .manual =
         "`text` without the run of one character at its ends: at its beginning for "
         "STRIP_LEADING, at both ends for STRIP_BOTH, and at its end for STRIP_TRAILING, every "
         "other value and when `mode` is left out. The character is the first byte of "
         "`character`, a blank when that is empty or left out.",
     .example = R"(strStrip("  a  ") == "  a" and strStrip("xxaxx", STRIP_LEADING, "x") == "axx")"},
    {.number = 56,
     .signature = "Long strByteValue(String text)",
     .factory = StrByteValue::factory,
     .manual = "The first byte of `text` as a number from 0 to 255; 0 when `text` is empty.",
     .example = R"(strByteValue("A") == 65)"},
    {.number = 58,
     .signature = "String strPad(String text, String fill, Long length, Bool atEnd)",
     .factory = StrPad::factory,
     .manual =
         "`text` made `length` bytes long: a longer one is cut at its end, a shorter one gets "
         "the first byte of `fill` (a blank when that is empty) as often as needed, after it "
         "when `atEnd` is true and before it when it is false. Logs an error and gives \"\" "
         "when `length` is negative or more than a string may have.",
     .example =
         R"(strPad("7", "0", 3, false) == "007" and strPad("12345", "0", 3, true) == "123")"},
    {.number = 128,
     .signature = "String strStrToHexStr(String bytes)",
     .factory = StrToHexStr::factory,
     .manual = "Each byte of `bytes` as two upper-case hexadecimal digits. Logs an error and gives "
               "\"\" when that is more than a string may have.",
     .example = R"(strStrToHexStr("Az") == "417A")"},
    {.number = 129,
     .signature = "String strHexStrToStr(String text)",
     .factory = HexStrToStr::factory,
     .manual =
         "The bytes that `text` gives in hexadecimal digits of either case, two characters a "
         "byte. Logs an error and gives \"\" when the number of characters is odd, or when "
         "two characters hold no number as the C library's conversion \"%x\" reads one: white "
         "space or a sign in place of the first digit and anything in place of the second are "
         "allowed (\" 7\" and \"7z\" are the byte 7, \"-1\" is the byte 255).",
     .example = R"(strHexStrToStr("417a") == "Az")"},
};

}  // namespace

std::span<const BuiltIn> stringBuiltIns() { return stringBuiltInsS; }

}  // namespace SCR
