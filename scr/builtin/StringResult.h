#pragma once

#include <cstddef>

#include "fnd/String.h"
#include "scr/Interpreter.h"

namespace SCR {

/// The most bytes that a built-in function makes one string of.
inline constexpr std::size_t maxStringSize = std::size_t{1} << 30;

/// Logs that a result of `size` bytes is too long and gives false.
bool refuseResult(Interpreter& interpreter, std::size_t size);

/// Whether a result may have `size` bytes by the limit of a string; false after a message.
inline bool checkResultSize(Interpreter& interpreter, std::size_t size) {
    if (size <= static_cast<std::size_t>(interpreter.limits().string)) [[likely]]
        return true;
    return refuseResult(interpreter, size);
}

/// As `reserveResult`, without a message and whatever the limit of a string.
bool tryReserveResult(FND::String& result, std::size_t size);

/// Makes `result`, the string that a built-in is about to fill, hold `size` bytes without further
/// allocation; what it held before is lost. False when it would be longer than the limit of a
/// string or `maxStringSize` allow, or there is no memory: an error is logged then and `result` is
/// empty. A built-in whose result may be long asks this before it makes it; the length of all
/// others is looked at by `BuiltInNode`.
bool reserveResult(Interpreter& interpreter, FND::String& result, std::size_t size);

/// Makes room for a result that grows to `size` bytes; what it holds stays. False as above.
bool growResult(Interpreter& interpreter, FND::String& result, std::size_t size);

}  // namespace SCR
