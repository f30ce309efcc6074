#include "fsm/pattern/Characters.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <tuple>

namespace FSM {

namespace {

constexpr char32_t lastCodeS = 0x10ffff;

bool isUpper(char32_t code) { return code >= 'A' && code <= 'Z'; }

/// The characters that differ from others only in their case. Two of them fold to the same
/// character if their capitals have the same small form.
class CaseTable {
public:
    CaseTable() {
        for (char32_t code = 0; code <= lastCaseCM; ++code) {
            const char32_t folded = fold(code);
            if (folded != code) byCode_.push_back({code, folded});
        }
        std::vector<Entry> themselves;
        for (const Entry& entry : byCode_) themselves.push_back({entry.folded, entry.folded});
        byCode_.insert(byCode_.end(), themselves.begin(), themselves.end());
        sortOnce(byCode_, [](const Entry& entry) { return std::pair(entry.code, entry.folded); });
        byFolded_ = byCode_;
        sortOnce(byFolded_, [](const Entry& entry) { return std::pair(entry.folded, entry.code); });
    }

    char32_t folded(char32_t code) const {
        const auto found = from(code);
        return found != byCode_.end() && found->code == code ? found->folded : code;
    }

    /// Calls visit(code) for all forms of the characters of `range`.
    template <class Visitor>
    void visitForms(CharacterRange range, Visitor visit) const {
        for (auto own = from(range.first); own != byCode_.end() && own->code <= range.second;
             ++own) {
            auto form = std::partition_point(
                byFolded_.begin(), byFolded_.end(),
                [&](const Entry& entry) { return entry.folded < own->folded; });
            for (; form != byFolded_.end() && form->folded == own->folded; ++form)
                visit(form->code);
        }
    }

private:
    struct Entry {
        char32_t code;
        char32_t folded;
    };
    // No character from here on has cases.
    static constexpr char32_t lastCaseCM = 0x1ffff;

    static char32_t fold(char32_t code) {
        // The capital I with a dot and the small i without one fold to no single character.
        if (code == 0x130 || code == 0x131) return code;
        const auto number = static_cast<utf8proc_int32_t>(code);
        return static_cast<char32_t>(utf8proc_tolower(utf8proc_toupper(number)));
    }

    template <class Key>
    static void sortOnce(std::vector<Entry>& entries, Key key) {
        std::sort(entries.begin(), entries.end(),
                  [&](const Entry& a, const Entry& b) { return key(a) < key(b); });
        entries.erase(std::unique(entries.begin(), entries.end(),
                                  [&](const Entry& a, const Entry& b) { return key(a) == key(b); }),
                      entries.end());
    }

    std::vector<Entry>::const_iterator from(char32_t code) const {
        return std::partition_point(byCode_.begin(), byCode_.end(),
                                    [&](const Entry& entry) { return entry.code < code; });
    }

    std::vector<Entry> byCode_;
    std::vector<Entry> byFolded_;
};

const CaseTable& caseTable() {
    static const CaseTable tableS;
    return tableS;
}

}  // namespace

Character characterOf(std::string_view text) {
    const auto byte = [&](std::size_t index) {
        return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
    };
    const unsigned first = byte(0);
    if (text.empty()) return {};
    if (first < 0x80) return {first, 1};
    const unsigned length = first < 0xc2 || first > 0xf4 ? 0
                            : first < 0xe0               ? 2
                            : first < 0xf0               ? 3
                                                         : 4;
    if (length == 0) return {};
    char32_t code = first & (0x7fU >> length);
    for (unsigned i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) return {};
        code = code << 6 | (byte(i) & 0x3f);
    }
    constexpr std::array<char32_t, 5> least{0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = code >= 0xd800 && code <= 0xdfff;
    if (code < least[length] || code > lastCodeS || isSurrogate) return {};
    return {code, length};
}

void appendUtf8(char32_t code, std::string& text) {
    const unsigned more = code < 0x80 ? 0 : code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    constexpr std::array<unsigned, 4> leads{0, 0xc0, 0xe0, 0xf0};
    text += static_cast<char>(leads[more] | code >> (6 * more));
    for (unsigned i = more; i-- > 0;) text += static_cast<char>(0x80 | (code >> (6 * i) & 0x3f));
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        // Eight bytes of ASCII at a time.
        std::uint64_t bytes = 0;
        if (text.size() >= sizeof bytes) {
            std::memcpy(&bytes, text.data(), sizeof bytes);
            if ((bytes & 0x8080808080808080u) == 0) {
                text.remove_prefix(sizeof bytes);
                continue;
            }
        }
        const Character next = characterOf(text);
        if (next.length == 0) return false;
        text.remove_prefix(next.length);
    }
    return true;
}

void addOtherCases(std::vector<CharacterRange>& ranges, bool isUnicode) {
    const std::size_t count = ranges.size();
    for (std::size_t i = 0; i < count; ++i) {
        const CharacterRange range = ranges[i];
        if (isUnicode) {
            caseTable().visitForms(range, [&](char32_t code) { ranges.emplace_back(code, code); });
            continue;
        }
        constexpr char32_t between = 'a' - 'A';
        for (const auto& [first, last, shift] :
             {std::tuple<char32_t, char32_t, int>('A', 'Z', 1),
              std::tuple<char32_t, char32_t, int>('a', 'z', -1)}) {
            const char32_t begin = std::max(range.first, first);
            const char32_t end = std::min(range.second, last);
            if (begin > end) continue;
            ranges.emplace_back(shift > 0 ? begin + between : begin - between,
                                shift > 0 ? end + between : end - between);
        }
    }
}

void foldCase(std::string_view text, const PatternOptions& options, std::string& folded) {
    folded.clear();
    while (!text.empty()) {
        const auto first = static_cast<unsigned char>(text[0]);
        const Character next =
            options.isUtf8 && first >= 0x80 ? characterOf(text) : Character{first, 1};
        if (next.length > 1) {
            appendUtf8(caseTable().folded(next.code), folded);
        } else {
            folded += isUpper(next.code) ? static_cast<char>(first | 0x20) : text[0];
        }
        text.remove_prefix(std::max(next.length, 1U));
    }
}

}  // namespace FSM
