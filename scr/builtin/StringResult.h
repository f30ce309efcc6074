#pragma once

#include <cstddef>

#include "fnd/String.h"
#include "scr/Interpreter.h"
#include "scr/run/RunControl.h"

namespace SCR {

/// The most bytes that a built-in function puts into one string.
inline constexpr std::size_t maxStringSize = std::size_t{1} << 30;

/// Logs that a result of `size` bytes is too long and gives false.
bool refuseResult(Interpreter& interpreter, std::size_t size);

/// Whether the limit of a string allows `size` bytes for a result; false after a message.
inline bool checkResultSize(Interpreter& interpreter, std::size_t size) {
    if (size <= static_cast<std::size_t>(interpreter.runControl().limits().string)) [[likely]]
        return true;
    return refuseResult(interpreter, size);
}

/// Like `reserveResult`, but without a message and regardless of the limit of a string.
bool tryReserveResult(FND::String& result, std::size_t size);

/// Makes `result`, the string that a built-in is about to fill, hold `size` bytes without further
/// allocation; its former text is lost. False, with an error logged and `result` empty, when that
/// would be longer than the limit of a string or `maxStringSize` allow, or there is no memory. A
/// built-in whose result may be long calls this before it fills the result; `BuiltInNode` checks
/// the length of all others.
bool reserveResult(Interpreter& interpreter, FND::String& result, std::size_t size);

/// Makes room for a result that grows to `size` bytes; its text stays. False as above.
bool growResult(Interpreter& interpreter, FND::String& result, std::size_t size);

}  // namespace SCR
