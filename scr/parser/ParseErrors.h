#pragma once

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

class CustomLexer;

/// Logs a compile error through the interpreter being compiled. The lexer's line, and the file name
/// if it is known, come first; without a lexer, which only the library's own code can be, there is
/// no place. Does nothing outside of a parse.
KESTREL_API void YaccError(const FND::String& message, CustomLexer* lexer);

/// The current line and file of the parse; the file is empty when it is not known. 0 outside of a
/// parse.
KESTREL_API int parsedLine();
KESTREL_API FND::String parsedFile();

}  // namespace SCR

/// Reports a compile error, or a warning, at the current place of the parser. Factories of
/// extensions use it like the library's own. Always false, so that a failing action can end with
/// `return SCR_YaccError(...)`. Call it only during a parse.
KESTREL_API bool SCR_YaccError(const FND::String& message);
