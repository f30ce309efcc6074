#pragma once

#include <string_view>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

// Values in messages: bytes that come from data must neither begin a line of a log nor steer a
// terminal, and a message is to be read.

/// Appends `text` with its control bytes as escapes: "\n", "\r", "\t", and "\x1B" for the others.
KESTREL_API void appendPrintable(FND::String& target, std::string_view text);

/// `value` between single quotes, as it may stand in a message: printable, and of a long one the
/// first 200 bytes, which are followed by "..." and its length: 'abc'... (300 bytes).
KESTREL_API FND::String quotedValue(std::string_view value);

}  // namespace SCR
