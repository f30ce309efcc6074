#pragma once

#include <cstddef>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "fsm/PatternOptions.h"

namespace FSM {

/// Whether `pattern` parses. If not, `error` tells why; nothing is printed. Any thread.
KESTREL_API bool checkPattern(const FND::String& pattern, FND::String& error);
/// The same; `place` is then the byte of the pattern, from 0 on, at which it stopped. `options` are
/// those of the engine that is to take the pattern.
KESTREL_API bool checkPattern(const FND::String& pattern, FND::String& error, std::size_t& place,
                              const PatternOptions& options = {});

}  // namespace FSM
