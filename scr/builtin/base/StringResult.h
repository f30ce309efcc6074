#pragma once

#include <cstddef>

#include "fnd/String.h"
#include "scr/Interpreter.h"
#include "scr/run/RunControl.h"

namespace SCR {

/// The most bytes that a built-in function puts into one string.
inline constexpr std::size_t maxStringSize = std::size_t{1} << 30;

/// Whether the limit of a string allows `size` bytes for a result.
inline bool isResultSize(Interpreter& interpreter, std::size_t size) {
    return size <= static_cast<std::size_t>(interpreter.runControl().limits().string);
}

/// Makes `result`, the string that a built-in is about to fill, hold `size` bytes without further
/// allocation; its former text is lost. False, with `result` empty, when that would be longer than
/// `maxStringSize`, or there is no memory.
bool tryReserveResult(FND::String& result, std::size_t size);

/// Makes room for a result that grows to `size` bytes; its text stays. False, with `result` empty,
/// when the limit of a string forbids that too.
bool growResult(Interpreter& interpreter, FND::String& result, std::size_t size);

}  // namespace SCR
