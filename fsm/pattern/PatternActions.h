#pragma once

#include <memory>

#include "fsm/EnginePart.h"
#include "fsm/pattern/PatternScanner.h"

/// Functions that the generated parser calls. All of them work on the calling thread's stack of
/// parts.
namespace FSM {

/// Tells that what is on top of the stack is no set any more.
void forgetSet();

inline EnginePart& topPart() { return *EnginePart::stackCM.back(); }

/// Pushes a new part; the arguments are those of a constructor of EnginePart.
template <class... Arguments>
void pushPart(Arguments... arguments) {
    forgetSet();
    EnginePart::stackCM.push_back(std::make_unique<EnginePart>(arguments...));
}

/// Pushes the part of the byte or character that is the `value` of a token.
void pushCharacter(const FSM_FlexLexer& scanner, int value);
/// Pushes the part of any byte or character but newline.
void pushWildCard(const FSM_FlexLexer& scanner);
/// Begins a set, to which those from `first` to `last` are added until it is closed, which pushes
/// its part.
void openSet(const FSM_FlexLexer& scanner, bool isNegated);
void addCharacters(const FSM_FlexLexer& scanner, int first, int last);
void closeSet();
/// To be called before the part on top is repeated without a bound: if it is a set with all
/// characters of several bytes, and texts are UTF-8, it takes these byte by byte from now on.
void loosenSet(const FSM_FlexLexer& scanner);
/// Replaces the two parts on top by the first followed by the second.
void concatenateParts();
/// Replaces the two parts on top by a part that matches either.
void alternateParts();
/// Repeats the part on top; false, with the error text set, if that is too large.
bool repeatPart(int minimum, int maximum);

}  // namespace FSM

int fsm_lex(int* value, FSM_FlexLexer& scanner);
void fsm_error(FSM_FlexLexer& scanner, const char* message);
