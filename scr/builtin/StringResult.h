#pragma once

#include <cstddef>

#include "fnd/String.h"

namespace SCR {

class Interpreter;

/// The most bytes that a built-in function makes one string of.
inline constexpr std::size_t maxStringSize = std::size_t{1} << 30;

/// As `reserveResult`, without a message.
bool tryReserveResult(FND::String& result, std::size_t size);

/// Makes `result`, the string that a built-in is about to fill, hold `size` bytes without further
/// allocation; what it held before is lost. False when it would be longer than `maxStringSize` or
/// there is no memory: an error is logged then and `result` is empty. Costs a comparison when
/// `result` has the room already.
bool reserveResult(Interpreter& interpreter, FND::String& result, std::size_t size);

}  // namespace SCR
