#pragma once

#include "fnd/Export.h"
#include "fnd/String.h"

namespace FSM {

/// Whether `pattern` parses. If not, `error` tells why; nothing is printed. Any thread.
KESTREL_API bool checkPattern(const FND::String& pattern, FND::String& error);

}  // namespace FSM
