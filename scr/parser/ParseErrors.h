#pragma once

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

class CustomLexer;

/// Logs a compile error through the interpreter being compiled, with the lexer's line and, when one
/// is known, file name before it; without a lexer, which only the library has, it tells no place.
/// Without a parse under way it does nothing.
KESTREL_API void YaccError(const FND::String& message, CustomLexer* lexer);

/// The line and the file, empty when not known, that the parse under way has reached; 0 without
/// one.
KESTREL_API int parsedLine();
KESTREL_API FND::String parsedFile();

}  // namespace SCR

/// Reports a compile error, or a warning, at the place that the parser has reached. Factories of
/// extensions use it as the library's own do. Always false, so that a failing action can end with
/// `return SCR_YaccError(...)`. To be called under a parse only.
KESTREL_API bool SCR_YaccError(const FND::String& message);
