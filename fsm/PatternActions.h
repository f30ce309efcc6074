#pragma once

#include <memory>

#include "fsm/EnginePart.h"
#include "fsm/PatternScanner.h"

/// Functions that the generated parser calls. All of them work on the calling thread's stack of
/// parts.
namespace FSM {

inline EnginePart& topPart() { return *EnginePart::stackCM.back(); }

/// Pushes a new part; the arguments are those of a constructor of EnginePart.
template <class... Arguments>
void pushPart(Arguments... arguments) {
    EnginePart::stackCM.push_back(std::make_unique<EnginePart>(arguments...));
}

/// Pushes the part of one byte, the low 8 bits of `value`.
void pushByte(int value);
/// Adds the bytes from `first` to `last`, the low 8 bits of each, to the set on top.
void addBytes(int first, int last);
/// Replaces the two parts on top by the first followed by the second.
void concatenateParts();
/// Replaces the two parts on top by a part that matches either.
void alternateParts();
/// Repeats the part on top; false, with the error text set, if that is too large.
bool repeatPart(int minimum, int maximum);

}  // namespace FSM

int fsm_lex(int* value, FSM_FlexLexer& scanner);
void fsm_error(FSM_FlexLexer& scanner, const char* message);
