#pragma once

#include <cstddef>
#include <string_view>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

// Values in messages are data: their bytes must not begin a line of a log or control a terminal,
// and the message must stay readable.

/// The number of bytes of the character of UTF-8 with which `text` begins; 0 for a byte that begins
/// none, and for no text.
KESTREL_API std::size_t characterSize(std::string_view text);

/// Appends `text` with its control bytes as escapes: "\n", "\r", "\t", and "\x1B" for the others.
KESTREL_API void appendPrintable(FND::String& target, std::string_view text);

/// `value` between single quotes, printable; of a long value only the first 200 bytes, followed by
/// "..." and its length: 'abc'... (300 bytes).
KESTREL_API FND::String quotedValue(std::string_view value);

}  // namespace SCR
