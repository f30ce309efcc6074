#include "scr/builtin/base/StringResult.h"

#include <algorithm>
#include <new>

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

bool growResult(Interpreter& interpreter, FND::String& result, std::size_t size) {
    if (size <= maxStringSize && isResultSize(interpreter, size)) {
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
    return false;
}

}  // namespace SCR
