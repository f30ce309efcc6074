#pragma once

#include "fsm/FlexLexer.h"

/// Nonzero: the parser traces its steps on standard error. 0 at first.
extern int FSM_debug;

/// Parses the pattern that `scanner` reads. 0 on success: the pattern's part is the only one on the
/// stack of `FSM::EnginePart`. Else 1, or 2 when the parser's stack of 10000 entries is full, and
/// `FSM::EnginePart::errorTextCM` tells why. Stack and text are shared by the whole process: the
/// caller holds the parser lock from before this call until it has taken the part or the text.
int FSM_parse(FSM_FlexLexer& scanner);

/// Puts into `FSM::EnginePart::errorTextCM` what the user is told of the parser's `message`;
/// `value` is that of the token at which it stopped.
void FSM_printerror(const char* message, int value);
