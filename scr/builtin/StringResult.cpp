#include "scr/builtin/StringResult.h"

#include <algorithm>
#include <new>
#include <string>

#include "scr/message/Messages.h"
#include "scr/run/MemoryCharge.h"

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

bool refuseResult(Interpreter& interpreter, std::size_t size) {
    interpreter.logError(Messages::resultTooLong(size));
    return false;
}

bool reserveResult(Interpreter& interpreter, FND::String& result, std::size_t size) {
    if (!checkResultSize(interpreter, size)) {
        result.clear();
        return false;
    }
    return tryReserveResult(result, size) || refuseResult(interpreter, size);
}

bool growResult(Interpreter& interpreter, FND::String& result, std::size_t size) {
    if (size <= maxStringSize && size <= static_cast<std::size_t>(interpreter.limits().string)) {
        if (size <= result.capacity()) return true;
        const std::size_t capacity = std::max(size, 2 * result.capacity());
        const BufferCharge old(heapBytes(result));  // counted while both exist
        chargeBuffer(growth(result, size));
        try {
            reserveInPieces(result, capacity);
            return true;
        } catch (const std::bad_alloc&) {
        }
    }
    result.clear();
    return refuseResult(interpreter, size);
}

}  // namespace SCR
