#include "modules/text/Unicode.h"

#include <utf8proc.h>

#include <optional>

#include "modules/text/Text.h"

namespace Modules::TextModule {

Character characterAt(std::string_view text, std::size_t at) {
    if (static_cast<unsigned char>(text[at]) < 0x80) return {text[at], 1};
    utf8proc_int32_t code = -1;
    const auto left = static_cast<utf8proc_ssize_t>(std::min<std::size_t>(text.size() - at, 4));
    const auto* const bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data() + at);
    const utf8proc_ssize_t size = utf8proc_iterate(bytes, left, &code);
    if (size <= 0) return {-1, 1};
    return {code, static_cast<std::size_t>(size)};
}

void appendCharacter(Text& text, std::int32_t code) {
    utf8proc_uint8_t bytes[4];
    const utf8proc_ssize_t size = utf8proc_encode_char(code, bytes);
    text.append({reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size)});
}

namespace {

// Calls `use` with each character and its bytes, until it gives false.
template <class Use>
void forEachCharacter(std::string_view text, const Use& use) {
    for (std::size_t at = 0; at < text.size();) {
        const Character character = characterAt(text, at);
        work(character.size + 2);
        if (!use(character.code, text.substr(at, character.size))) return;
        at += character.size;
    }
}

}  // namespace

std::size_t columnsOf(std::string_view text) {
    std::size_t columns = 0;
    forEachCharacter(text, [&](std::int32_t code, std::string_view) {
        columns += code < 0 ? 1 : static_cast<std::size_t>(utf8proc_charwidth(code));
        return true;
    });
    return columns;
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
    std::size_t size = 0;
    forEachCharacter(text, [&](std::int32_t, std::string_view bytes) {
        if (count == 0) return false;
        --count;
        size += bytes.size();
        return true;
    });
    return text.substr(0, size);
}

namespace {

bool isUtf8(std::string_view text) {
    bool isGood = true;
    forEachCharacter(text, [&](std::int32_t code, std::string_view) {
        isGood = code >= 0;
        return isGood;
    });
    return isGood;
}

long characters(std::string_view text) {
    long count = 0;
    forEachCharacter(text, [&](std::int32_t, std::string_view) { return ++count > 0; });
    return count;
}

long width(std::string_view text) { return static_cast<long>(columnsOf(text)); }

FND::String part(std::string_view text, long first, std::optional<long> count) {
    if (first < 0 || count.value_or(0) < 0) return {};
    text.remove_prefix(firstCharacters(text, static_cast<std::size_t>(first)).size());
    if (count) text = firstCharacters(text, static_cast<std::size_t>(*count));
    Text made;
    made.append(text);
    return made.take();
}

template <class Map>
FND::String mapped(std::string_view text, const Map& map) {
    Text made(text.size());
    forEachCharacter(text, [&](std::int32_t code, std::string_view bytes) {
        if (code < 0) {
            made.append(bytes);
        } else {
            map(made, code);
        }
        return true;
    });
    return made.take();
}

FND::String upper(std::string_view text) {
    return mapped(
        text, [](Text& made, std::int32_t code) { appendCharacter(made, utf8proc_toupper(code)); });
}

FND::String lower(std::string_view text) {
    return mapped(
        text, [](Text& made, std::int32_t code) { appendCharacter(made, utf8proc_tolower(code)); });
}

FND::String fold(std::string_view text) {
    return mapped(text, [](Text& made, std::int32_t code) {
        utf8proc_int32_t codes[8];
        int lastClass = 0;
        const utf8proc_ssize_t count = utf8proc_decompose_char(
            code, codes, 8, static_cast<utf8proc_option_t>(UTF8PROC_CASEFOLD), &lastClass);
        for (utf8proc_ssize_t i = 0; i < std::min<utf8proc_ssize_t>(count, 8); ++i) {
            appendCharacter(made, codes[i]);
        }
    });
}

// Whether nothing before this character can combine with it, so that a text may be cut there.
bool startsAnew(std::int32_t code) {
    if (code < 0x80) return true;
    const utf8proc_property_t& facts = *utf8proc_get_property(code);
    switch (facts.boundclass) {
        case UTF8PROC_BOUNDCLASS_OTHER:
        case UTF8PROC_BOUNDCLASS_L:
        case UTF8PROC_BOUNDCLASS_LV:
        case UTF8PROC_BOUNDCLASS_LVT:
            return facts.combining_class == 0;
        default:
            return false;
    }
}

std::optional<utf8proc_option_t> optionsOf(std::string_view form) {
    const int stable = UTF8PROC_STABLE;
    if (form == "NFC") return static_cast<utf8proc_option_t>(stable | UTF8PROC_COMPOSE);
    if (form == "NFD") return static_cast<utf8proc_option_t>(stable | UTF8PROC_DECOMPOSE);
    if (form == "NFKC")
        return static_cast<utf8proc_option_t>(stable | UTF8PROC_COMPOSE | UTF8PROC_COMPAT);
    if (form == "NFKD")
        return static_cast<utf8proc_option_t>(stable | UTF8PROC_DECOMPOSE | UTF8PROC_COMPAT);
    return std::nullopt;
}

// Normalizes piece by piece: the library's call cannot be stopped, and its time grows with the
// square of a run of combining marks.
FND::String normalize(std::string_view text, std::string_view form) {
    constexpr std::size_t mostMarks = 128;
    const std::optional<utf8proc_option_t> options = optionsOf(form);
    if (!options) refuse("unknown normal form", form);
    Text made(text.size());
    std::vector<utf8proc_int32_t> codes;  // of a piece
    const auto finish = [&](std::string_view piece) {
        if (piece.empty()) return;
        codes.resize(piece.size() * 18);
        const auto* const bytes = reinterpret_cast<const utf8proc_uint8_t*>(piece.data());
        const utf8proc_ssize_t count =
            utf8proc_decompose(bytes, static_cast<utf8proc_ssize_t>(piece.size()), codes.data(),
                               static_cast<utf8proc_ssize_t>(codes.size()), *options);
        if (count < 0) refuse("text cannot be normalized", piece);
        const utf8proc_ssize_t left = utf8proc_normalize_utf32(codes.data(), count, *options);
        for (utf8proc_ssize_t i = 0; i < left; ++i) {
            appendCharacter(made, codes[static_cast<std::size_t>(i)]);
        }
    };
    constexpr std::size_t most = 512;  // bytes of a piece, after which it ends as soon as it may
    std::size_t begin = 0;
    std::size_t at = 0;
    std::size_t marks = 0;
    while (at < text.size()) {
        const Character character = characterAt(text, at);
        work(character.size * 8);
        if (character.code < 0) {
            finish(text.substr(begin, at - begin));
            made.append(text[at]);
            begin = at + 1;
            marks = 0;
        } else if (startsAnew(character.code)) {
            marks = 0;
            if (at - begin >= most) {
                finish(text.substr(begin, at - begin));
                begin = at;
            }
        } else if (++marks > mostMarks) {
            refuse("more than 128 combining characters in a row at byte", static_cast<long>(at));
        }
        at += character.size;
    }
    finish(text.substr(begin));
    return made.take();
}

FND::String chr(long code) {
    if (code < 0 || !utf8proc_codepoint_valid(static_cast<std::int32_t>(code)) || code > 0x10FFFF) {
        refuse("no character has the code", code);
    }
    Text made;
    appendCharacter(made, static_cast<std::int32_t>(code));
    return made.take();
}

long ord(std::string_view text) { return text.empty() ? -1 : characterAt(text, 0).code; }

constexpr ModuleFunction unicodeFunctionsS[] = {
    {"Bool isUtf8(String text)", SCR::addFunction<isUtf8>, Effect::None,
     "Whether the bytes of `text` are UTF-8.",
     R"(text::isUtf8("a") and text::isUtf8(strHexStrToStr("FF")) == false)"},
    {"Long characters(String text)", SCR::addFunction<characters>, Effect::None,
     "The number of characters. A byte that is not UTF-8 counts as one.",
     R"(text::characters("äb") == 2)"},
    {"Long width(String text)", SCR::addFunction<width>, Effect::None,
     "The number of columns on a screen: 2 for wide characters, 0 for combining ones.",
     R"(text::width("中!") == 3)"},
    {"String part(String text, Long first, [Long count])", SCR::addFunction<part>, Effect::None,
     "The characters from number `first` on, from 0, at most `count`; empty for negative numbers.",
     R"(text::part("äbc", 1, 1) == "b")"},
    {"String upper(String text)", SCR::addFunction<upper>, Effect::None,
     "`text` in upper case, character by character; bytes that are not UTF-8 stay.",
     R"(text::upper("ä") == "Ä")"},
    {"String lower(String text)", SCR::addFunction<lower>, Effect::None,
     "`text` in lower case, character by character; bytes that are not UTF-8 stay.",
     R"(text::lower("Ä") == "ä")"},
    {"String fold(String text)", SCR::addFunction<fold>, Effect::None,
     "`text` for comparing without regard to case: equal for texts that differ in case only.",
     R"(text::fold("STRASSE") == text::fold("straße"))"},
    {"String normalize(String text, String form)", SCR::addFunction<normalize>, Effect::None,
     "The normal form `NFC`, `NFD`, `NFKC` or `NFKD` of `text`; bytes that are not UTF-8 stay. "
     "Another form, or more than 128 combining characters in a row, is an error, and the result "
     "empty.",
     R"(text::normalize("a" + strHexStrToStr("CC88"), "NFC") == "ä")"},
    {"String chr(Long code)", SCR::addFunction<chr>, Effect::None,
     "The character with this code of Unicode. A code without one is an error, and the result "
     "empty.",
     R"(text::chr(228) == "ä")"},
    {"Long ord(String text)", SCR::addFunction<ord>, Effect::None,
     "The code of the first character; -1 when there is none, or it is not UTF-8.",
     R"(text::ord("ä") == 228)"},
};

}  // namespace

std::span<const ModuleFunction> unicodeFunctions() { return unicodeFunctionsS; }

}  // namespace Modules::TextModule
