#pragma once

#include <memory>

#include "fnd/String.h"
#include "fsm/EnginePart.h"
#include "fsm/pattern/PatternScanner.h"

/// Nonzero: the parser traces its steps on standard error. 0 at first.
extern int FSM_debug;

/// Parses the pattern that `scanner` reads. 0 on success: the pattern's part is the only one on the
/// stack of `FSM::EnginePart`. Otherwise 1, or 2 when the parser's stack of 10000 entries is full,
/// and `FSM::EnginePart::errorTextCM` tells why. Stack and text are those of the calling thread.
int FSM_parse(FSM_FlexLexer& scanner);

/// Sets `FSM::EnginePart::errorTextCM` to the user's form of the parser's `message`; `value` is
/// that of the token at which it stopped.
void FSM_printerror(const char* message, int value);

namespace FSM {

/// Parses `pattern`. Null, with the reason in `error`, if that fails. Any number of threads may
/// parse at once. `place`, unless null, is then the byte of the pattern at which it failed. With
/// `meetsUtf8Only` the automaton will only meet texts in UTF-8, so repeated sets that hold all
/// characters of several bytes may go byte by byte. Throws std::bad_alloc and the exceptions of the
/// budget.
std::unique_ptr<EnginePart> parsePattern(const FND::String& pattern, const PatternOptions& options,
                                         FND::String& error, std::size_t* place = nullptr,
                                         bool meetsUtf8Only = false);

}  // namespace FSM
