#pragma once

#include <cstdint>
#include <string_view>

#include "modules/Support.h"

namespace Modules::TextModule {

/// One character of a text; a byte that is not UTF-8 counts as one, with the code -1.
struct Character {
    std::int32_t code = -1;
    std::size_t size = 1;
};

/// The character at `at`, which lies in the text.
Character characterAt(std::string_view text, std::size_t at);

/// Appends a character in UTF-8; `code` is a Unicode code point.
void appendCharacter(Text& text, std::int32_t code);

/// Columns on a screen; 1 for each byte that is not UTF-8.
std::size_t columnsOf(std::string_view text);

/// `text` cut after so many characters.
std::string_view firstCharacters(std::string_view text, std::size_t count);

}  // namespace Modules::TextModule
