#pragma once

#include "scr/parser/Span.h"

namespace SCR {

/// Whether a value can end with a token of this code, or begin with it. Parentheses and brackets
/// end values, but do not count as the beginning of one.
bool endsValue(int code);
bool beginsValue(int code);

bool isOperator(int code);
bool beginsStatement(int code);
/// Whether it is a word of the language.
bool isWord(int code);
bool isSwitchWord(int code);

/// The place after `span`.
Span after(Span span);

}  // namespace SCR
