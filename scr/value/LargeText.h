#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "fnd/Export.h"
#include "scr/run/CountedWork.h"

namespace SCR {

// These functions look at each byte of a text in pieces, and each piece counts as work. So a script
// can be stopped in a long text; `ScriptStopped` is thrown then. Short texts are one piece.

/// Bytes processed between two counts.
constexpr std::size_t textPieceSizeS = 64 * 1024;

/// Compares the bytes of two texts as unsigned numbers: negative, 0 or positive.
int compareLarge(std::string_view a, std::string_view b);

/// The number of bytes at the start that both texts have in common.
std::size_t commonLength(std::string_view a, std::string_view b);

/// The position of the first `byte` in `text`; the length of `text` if there is none.
std::size_t findByte(std::string_view text, char byte);

/// Whether two texts are equal.
inline bool areEqual(const FND::String& a, const FND::String& b) {
    if (isLarge(a.size())) [[unlikely]]
        return a.size() == b.size() && compareLarge(a, b) == 0;
    return a == b;
}

/// The same, faster for texts of up to 16 bytes, as keys mostly are.
[[gnu::always_inline]] inline bool areEqualKeys(const FND::String& a, const FND::String& b) {
    const std::size_t size = a.size();
    if (size != b.size()) return false;
    // Two words, which overlap in a text of less than 16 bytes.
    const auto areEqualWords = [&]<class Word>(Word first) {
        Word others[3];
        std::memcpy(&first, a.data(), sizeof(Word));
        std::memcpy(&others[0], b.data(), sizeof(Word));
        std::memcpy(&others[1], a.data() + size - sizeof(Word), sizeof(Word));
        std::memcpy(&others[2], b.data() + size - sizeof(Word), sizeof(Word));
        return ((first ^ others[0]) | (others[1] ^ others[2])) == 0;
    };
    if (size - 8 <= 8) return areEqualWords(std::uint64_t{});
    if (size - 4 < 4) return areEqualWords(std::uint32_t{});
    return areEqual(a, b);
}

/// `text` without leading bytes of `set`, a byte or several.
template <class Set>
std::string_view withoutFront(std::string_view text, Set set) {
    for (;;) {
        const std::size_t size = std::min(textPieceSizeS, text.size());
        const std::size_t kept = text.substr(0, size).find_first_not_of(set);
        text.remove_prefix(std::min(kept, size));
        if (kept < size || text.empty()) return text;
        countWork(size);
    }
}

/// `text` without trailing bytes of `set`.
template <class Set>
std::string_view withoutBack(std::string_view text, Set set) {
    for (;;) {
        const std::size_t size = std::min(textPieceSizeS, text.size());
        // One past the last byte to keep: 0, by overflow, when there is none.
        const std::size_t kept = text.substr(text.size() - size).find_last_not_of(set) + 1;
        text.remove_suffix(size - kept);
        if (kept > 0 || text.empty()) return text;
        countWork(size);
    }
}

/// The first place in `text` where `part` stands, or null; for a `part` so long that a single
/// comparison counts as work. Takes time in proportion to the lengths of both, by fingerprints
/// after Rabin and Karp with a base drawn at random.
const char* findLarge(std::string_view text, std::string_view part);

}  // namespace SCR
