#include "modules/codec/Codec.h"

#include <array>
#include <cstring>
#include <optional>

namespace Modules::CodecModule {

std::string_view Hex::of(std::span<const unsigned char> bytes) {
    using Pair = std::array<char, 2>;
    static constexpr std::array<Pair, 256> pairsS = [] {
        constexpr char digits[] = "0123456789abcdef";
        std::array<Pair, 256> pairs{};
        for (std::size_t i = 0; i < pairs.size(); ++i) pairs[i] = {digits[i >> 4], digits[i & 15]};
        return pairs;
    }();
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        std::memcpy(&digits_[2 * i], pairsS[bytes[i]].data(), sizeof(Pair));
    }
    return {digits_.data(), 2 * bytes.size()};
}

namespace {

constexpr std::string_view plainDigitsS =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view urlDigitsS =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

template <bool isUrl>
FND::String toBase64(std::string_view bytes) {
    constexpr std::string_view digits = isUrl ? urlDigitsS : plainDigitsS;
    Text made;
    made.makeRoom(bytes.size() / 3 * 4 + 4);
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - at);
        unsigned value = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            value = value << 8 | (i < count ? static_cast<unsigned char>(bytes[at + i]) : 0U);
        }
        for (std::size_t i = 0; i < 4; ++i) {
            if (i <= count) {
                made.append(digits[value >> (18 - 6 * i) & 63]);
            } else if (!isUrl) {
                made.append('=');
            }
        }
        if (at % 3072 == 0) work(3072);
    }
    return made.take();
}

// The value of each digit of both alphabets, or -1.
constexpr std::array<signed char, 256> digitValuesS = [] {
    std::array<signed char, 256> values{};
    values.fill(-1);
    for (const std::string_view digits : {plainDigitsS, urlDigitsS}) {
        for (std::size_t i = 0; i < digits.size(); ++i) {
            values[static_cast<unsigned char>(digits[i])] = static_cast<signed char>(i);
        }
    }
    return values;
}();

FND::String fromBase64(std::string_view text) {
    const std::string_view whole = text;
    Text made;
    made.makeRoom(text.size() / 4 * 3 + 3);
    for (int i = 0; i < 2 && text.ends_with('='); ++i) text.remove_suffix(1);
    unsigned value = 0;
    int bits = 0;
    std::size_t digits = 0;
    for (const char byte : text) {
        if (++digits % 1024 == 0) work(1024);
        const signed char digit = digitValuesS[static_cast<unsigned char>(byte)];
        if (digit < 0) refuse("no base64", whole);
        value = (value << 6 | static_cast<unsigned>(digit)) & 0xFFFF;
        bits += 6;
        if (bits < 8) continue;
        bits -= 8;
        made.append(static_cast<char>(value >> bits & 255));
    }
    const bool isRest = (value & ((1U << bits) - 1)) != 0;
    if (digits % 4 == 1 || isRest) refuse("no base64", whole);
    return made.take();
}

bool isUnreserved(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9') || byte == '-' || byte == '_' || byte == '.' || byte == '~';
}

FND::String toPercent(std::string_view text) {
    constexpr char digits[] = "0123456789ABCDEF";
    Text made(text.size());
    for (const char byte : text) {
        work(1);
        if (isUnreserved(byte)) {
            made.append(byte);
            continue;
        }
        const auto code = static_cast<unsigned char>(byte);
        const char escape[] = {'%', digits[code >> 4], digits[code & 15]};
        made.append({escape, 3});
    }
    return made.take();
}

FND::String fromPercent(std::string_view text, std::optional<bool> plusIsBlank) {
    Text made(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        work(1);
        if (text[at] == '+' && plusIsBlank.value_or(false)) {
            made.append(' ');
        } else if (text[at] != '%') {
            made.append(text[at]);
        } else {
            const int high = at + 2 < text.size() ? hexValue(text[at + 1]) : -1;
            const int low = high >= 0 ? hexValue(text[at + 2]) : -1;
            if (low < 0) refuse("no percent coding", text.substr(at));
            made.append(static_cast<char>(high * 16 + low));
            at += 2;
        }
    }
    return made.take();
}

// `text` with replacements for some bytes, where `map` gives one.
template <class Map>
void appendMapped(Text& made, std::string_view text, const Map& map) {
    for (const char byte : text) {
        work(1);
        const std::string_view by = map(byte);
        if (by.empty()) {
            made.append(byte);
        } else {
            made.append(by);
        }
    }
}

FND::String html(std::string_view text) {
    Text made(text.size());
    appendMapped(made, text, [](char byte) -> std::string_view {
        switch (byte) {
            case '&':
                return "&amp;";
            case '<':
                return "&lt;";
            case '>':
                return "&gt;";
            case '"':
                return "&quot;";
            case '\'':
                return "&#39;";
            default:
                return {};
        }
    });
    return made.take();
}

FND::String shellQuote(std::string_view text) {
    if (placeOfByte('\0', text) < text.size()) refuse("a shell takes no byte 0 as in", text);
    Text made(text.size());
    made.append('\'');
    appendMapped(made, text, [](char byte) -> std::string_view {
        return byte == '\'' ? "'\\''" : std::string_view();
    });
    made.append('\'');
    return made.take();
}

FND::String csvQuote(std::string_view text, std::optional<std::string_view> separator) {
    ByteSet special(separator.value_or(","));
    for (const char byte : {'"', '\r', '\n'}) special.add(byte);
    bool isQuoted = false;
    inPieces(text, [&](std::string_view piece) {
        isQuoted = isQuoted || special.placeIn(piece, true) < piece.size();
    });
    Text made;
    if (isQuoted) made.append('"');
    appendMapped(made, text, [](char byte) -> std::string_view {
        return byte == '"' ? "\"\"" : std::string_view();
    });
    if (isQuoted) made.append('"');
    return made.take();
}

// A quote within a field that is not in quotes is an ordinary byte.
long csvSplit(std::string_view line, ArrayRef<FND::String> out,
              std::optional<std::string_view> separator) {
    const std::string_view mark = separator.value_or(",");
    if (mark.size() != 1 || mark == "\"") refuse("the separator must be one byte, not", mark);
    if (line.ends_with('\n')) line.remove_suffix(1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    // Nothing is stored before the whole line is known to be good.
    Text fields;
    List<std::size_t> ends;
    fields.makeRoom(line.size());
    for (bool isLast = false; !isLast;) {
        if (line.starts_with('"')) {
            line.remove_prefix(1);
            for (;;) {
                const std::size_t end = placeOfByte('"', line);
                if (end == line.size()) refuse("a quote is not closed before", line);
                fields.append(line.substr(0, end));
                line.remove_prefix(end + 1);
                if (!line.starts_with('"')) break;
                fields.append('"');
                line.remove_prefix(1);
                work(32);
            }
            if (!line.empty() && line[0] != mark[0]) refuse("text after a closing quote", line);
        } else {
            const std::size_t end = placeOfByte(mark[0], line);
            fields.append(line.substr(0, end));
            line.remove_prefix(end);
        }
        isLast = line.empty();
        line.remove_prefix(isLast ? 0 : 1);
        work(32);
        ends.add(fields.size());
    }
    Parts parts(out);
    std::size_t begin = 0;
    for (const std::size_t end : ends) {
        parts.add(std::string_view(fields.bytes()).substr(begin, end - begin));
        begin = end;
    }
    return parts.finish();
}

constexpr ModuleFunction codecFunctionsS[] = {
    {"String base64(String bytes)", SCR::addFunction<toBase64<false>>, Effect::None,
     "The bytes in base64.", R"(codec::base64("light wor") == "bGlnaHQgd29y")"},
    {"String base64url(String bytes)", SCR::addFunction<toBase64<true>>, Effect::None,
     "The bytes in the base64 for addresses, with `-` and `_`, and without `=` at the end.",
     R"(codec::base64url("a?>") == "YT8-")"},
    {"String fromBase64(String text)", SCR::addFunction<fromBase64>, Effect::None,
     "The bytes that a text in either base64 stands for; `=` at the end may be missing.",
     R"(codec::fromBase64("aGk=") == "hi" and codec::fromBase64("YT8-") == "a?>")"},
    {"String percent(String text)", SCR::addFunction<toPercent>, Effect::None,
     "`text` as a part of an address: all bytes but letters, digits and `-_.~` as `%` and two "
     "hexadecimal digits.",
     R"(codec::percent("a b/c") == "a%20b%2Fc")"},
    {"String fromPercent(String text, [Bool plusIsBlank])", SCR::addFunction<fromPercent>,
     Effect::None, "The text that percent coding stands for; `+` may be a blank, as in forms.",
     R"(codec::fromPercent("a+b%2f", true) == "a b/")"},
    {"String html(String text)", SCR::addFunction<html>, Effect::None,
     "`text` for HTML and XML, with references for `&`, `<`, `>` and quotes.",
     R"(codec::html("a<b>") == "a&lt;b&gt;")"},
    {"String shellQuote(String text)", SCR::addFunction<shellQuote>, Effect::None,
     "`text` as one word for a shell. A text with a byte 0 is an error, and the result empty.",
     R"(codec::shellQuote("it's") == "'it'\\''s'")"},
    {"String csvQuote(String text, [String separators])", SCR::addFunction<csvQuote>, Effect::None,
     "`text` as a field of CSV: in quotes if it has one, a line end or a byte of `separators`, "
     "which is a comma by default.",
     R"(codec::csvQuote("a,b") == "\"a,b\"" and codec::csvQuote("a") == "a")"},
    {"Long csvSplit(String line, out String[] fields, [String separator])",
     SCR::addFunction<csvSplit>, Effect::None,
     "Fills `fields` with the fields of a line of CSV, without their quotes, and gives their "
     "number. "
     "Fields in quotes may hold line ends. The separator is one byte, a comma by default. A quote "
     "that is not closed, or is followed by text, is an error, and the result 0.",
     R"(String f[]; codec::csvSplit("a,\"b,\"\"c\"\"\"", f) == 2 and f[1] == "b,\"c\"")"},
};

}  // namespace

std::span<const ModuleFunction> codecFunctions() { return codecFunctionsS; }

namespace {

const std::vector<ModuleFunction> functionsS =
    joined({codecFunctions(), jsonFunctions(), digestFunctions()});

const SCR::ModuleTable tableS{"codec", "Encodings, quoting, JSON in texts, digests and pseudonyms.",
                              functionsS};

}  // namespace

}  // namespace Modules::CodecModule

KESTREL_MODULE(codec, Modules::CodecModule::tableS);
