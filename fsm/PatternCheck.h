#pragma once

#include "fnd/String.h"

namespace FSM {

/// Whether `pattern` parses. If not, `error` tells why; nothing is printed. Any thread.
bool checkPattern(const FND::String& pattern, FND::String& error);

}  // namespace FSM
