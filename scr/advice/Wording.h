#pragma once

#include <string_view>

#include "fnd/String.h"

namespace SCR {

/// `text` as a message shows a piece of a script: between backquotes.
FND::String quoted(std::string_view text);

/// `text` with its ASCII letters in lower case.
FND::String lowered(std::string_view text);

/// Whether `text` consists of decimal digits, at least one.
bool isDigits(std::string_view text);

/// Whether a token's code is that of a brace, parenthesis or bracket.
bool isOpening(int code);
bool isClosing(int code);

}  // namespace SCR
