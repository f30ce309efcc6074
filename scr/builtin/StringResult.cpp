#include "scr/builtin/StringResult.h"

#include <new>
#include <string>

#include "scr/Interpreter.h"
#include "scr/Memory.h"

namespace SCR {

bool tryReserveResult(FND::String& result, std::size_t size) {
    if (size <= result.capacity()) [[likely]]
        return true;
    result.clear();
    if (size > maxStringSize) return false;
    try {
        growBuffer(result, size);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

bool reserveResult(Interpreter& interpreter, FND::String& result, std::size_t size) {
    const auto limit = static_cast<std::size_t>(interpreter.limits().string);
    if (size <= limit && tryReserveResult(result, size)) [[likely]]
        return true;
    result.clear();
    interpreter.logError("String result is too long '" + std::to_string(size) + "'");
    return false;
}

}  // namespace SCR
