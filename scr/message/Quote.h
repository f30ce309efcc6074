#pragma once

#include <string_view>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

// Values in messages are data: their bytes must not begin a line of a log or control a terminal,
// and the message must stay readable.

/// Appends `text` with its control bytes as escapes: "\n", "\r", "\t", and "\x1B" for the others.
KESTREL_API void appendPrintable(FND::String& target, std::string_view text);

/// `value` between single quotes, printable; of a long value only the first 200 bytes, followed by
/// "..." and its length: 'abc'... (300 bytes).
KESTREL_API FND::String quotedValue(std::string_view value);

}  // namespace SCR
