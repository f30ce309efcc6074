#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fsm/PatternOptions.h"

namespace FSM {

/// A character of a text in UTF-8.
struct Character {
    char32_t code = 0;
    unsigned length = 0;  // in bytes; 0 if the text does not begin with a character
};

/// The character that `text` begins with.
Character characterOf(std::string_view text);
void appendUtf8(char32_t code, std::string& text);
/// Whether all of `text` is UTF-8.
bool isUtf8(std::string_view text);

/// From the first character to the last one; empty if they are in the wrong order.
using CharacterRange = std::pair<char32_t, char32_t>;

/// Adds the other cases of the characters in `ranges`: with `isUnicode` of all that fold to the
/// same single character, otherwise of the letters of ASCII.
void addOtherCases(std::vector<CharacterRange>& ranges, bool isUnicode);

/// Replaces `folded` by `text` with one case for each letter, as the options say. Two words without
/// their case are equal if they are equal after this. Bytes that are not UTF-8 stay.
void foldCase(std::string_view text, const PatternOptions& options, std::string& folded);

}  // namespace FSM
